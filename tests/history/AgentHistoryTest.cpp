#include <gtest/gtest.h>

#include <random>

#include "history/MessageCounter.h"
#include "history/SessionHistory.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexParser.h"
#include "ingest/LiveTailReaderRegistry.h"
#include "support/TempDir.h"
#include "support/Transcripts.h"

/// Sessions of the agents whose lines or documents aren't those of Claude Code, paged backward.
namespace sonra {
namespace {

using Texts = std::vector<std::string>;

std::string codexReply(const std::string& text) {
    return R"({"type":"response_item","timestamp":"t","payload":{"type":"message",)"
           R"("role":"assistant","content":[{"type":"output_text","text":")" +
           text + "\"}]}}\n";
}

std::string codexItem(const std::string& text) {
    return R"({"type":"event_msg","timestamp":"i","payload":{"type":"item_completed",)"
           R"("item":{"type":"AgentMessage","content":[{"type":"Text","text":")" +
           text + "\"}]}}}\n";
}

const std::string codexCall = R"({"type":"response_item","payload":{"type":"function_call"}})"
                              "\n";

const std::string codexTurn = R"({"type":"event_msg","payload":{"type":"user_message"}})"
                              "\n";

const std::string codexTokens = R"({"type":"event_msg","payload":{"type":"token_count"}})"
                                "\n";

/// The same line of another time.
std::string codexAt(const std::string& time, std::string line) {
    const std::string key = R"("timestamp":")";
    const auto start = line.find(key) + key.size();
    return line.replace(start, line.find('"', start) - start, time);
}

std::string gemini(const std::string& id, const std::string& text) {
    return R"({"id":")" + id + R"(","type":"gemini","content":")" + text + "\"}";
}

std::string geminiLine(const std::string& id, const std::string& text) {
    return gemini(id, text) + "\n";
}

std::string rewindTo(const std::string& id) {
    return R"({"$rewindTo":")" + id + "\"}\n";
}

std::string pi(const std::string& id, const std::string& text) {
    return R"({"type":"message","id":")" + id +
           R"(","message":{"role":"assistant","content":[{"type":"text","text":")" + text +
           "\"}]}}\n";
}

const std::string geminiHeader = R"({"sessionId":"s","projectHash":"h","kind":"main"})"
                                 "\n";

class AgentHistory : public testing::Test {
  protected:
    /// Everything, a page of two at a time, newest first.
    Texts paged(HistorySource source, const std::string& content,
                const std::string& name = "session.jsonl") {
        test::writeFile(dir / name, content);
        SessionHistory history(dir / name, source, 1024);
        while (!history.loadOlder(2).empty()) {
        }
        EXPECT_TRUE(history.isExhausted());
        Texts texts;
        for (const auto& message : history.loadedMessages()) texts.push_back(message.text);
        return texts;
    }

    /// The ids of all that is paged of Codex, newest first.
    Texts idsOf(const std::string& content) {
        test::writeFile(dir / "session.jsonl", content);
        SessionHistory history(dir / "session.jsonl", HistorySource::codex, 1024);
        Texts ids;
        for (const auto& message : history.loadOlder(100)) ids.push_back(message.messageId);
        return ids;
    }

    test::TempDir dir;
};

TEST_F(AgentHistory, CodexPagesItsResponseItems) {
    EXPECT_EQ(paged(HistorySource::codex, codexReply("One.") + codexCall + codexReply("Two.")),
              (Texts{"Two.", "One."}));
}

TEST_F(AgentHistory, CodexPagesItemsThatNoResponseItemRepeats) {
    EXPECT_EQ(paged(HistorySource::codex, codexItem("One.") + codexCall + codexItem("Two.")),
              (Texts{"Two.", "One."}));
    EXPECT_EQ(paged(HistorySource::codex, codexItem("One.") + codexReply("One.") + codexCall +
                                              codexReply("Two.") + codexItem("Two.") + codexCall +
                                              codexItem("Two.")),
              (Texts{"Two.", "Two.", "One."}));
}

TEST_F(AgentHistory, CodexPagesAReplyOnceHoweverLateItsResponseItemStands) {
    EXPECT_EQ(paged(HistorySource::codex,
                    codexItem("One.") + codexCall + codexReply("One.") + codexReply("Two.")),
              (Texts{"Two.", "One."}));
    EXPECT_EQ(paged(HistorySource::codex, codexItem("One.") + codexCall + codexItem("One.") +
                                              codexCall + codexReply("One.")),
              (Texts{"One.", "One."}))
        << "a response item answers for one";
}

TEST_F(AgentHistory, CodexPagesTheSameWordsOfTwoTurnsTwice) {
    EXPECT_EQ(paged(HistorySource::codex, codexItem("Done.") + codexTurn + codexReply("Done.")),
              (Texts{"Done.", "Done."}));
}

TEST_F(AgentHistory, CodexPagesALateReplyUnderTheIdOfItsEvent) {
    const auto early = codexAt("2026-08-03T10:48:56.000Z", codexItem("One."));
    const auto soon = codexAt("2026-08-03T10:48:57.500Z", codexReply("One."));
    const auto late = codexAt("2026-08-03T10:48:57.501Z", codexReply("One."));
    const auto event = idsOf(early);
    EXPECT_EQ(idsOf(early + soon), idsOf(soon));
    EXPECT_EQ(idsOf(early + codexTokens + soon), idsOf(soon));
    EXPECT_EQ(idsOf(early + codexCall + soon), event);
    EXPECT_EQ(idsOf(early + late), event);
    EXPECT_EQ(idsOf(codexItem("One.") + codexTokens + codexReply("One.")),
              idsOf(codexReply("One.")))
        << "times that nobody can read are no times";
    EXPECT_EQ(idsOf(soon + codexCall + early), idsOf(soon));
    EXPECT_EQ(idsOf(early + soon + early).size(), 2U);
}

/// Whoever joins the two finds one message.
TEST_F(AgentHistory, CodexPagesWhatItsReaderReads) {
    const std::vector<std::string> parts = {
        codexTurn,         codexCall,
        codexTokens,       codexAt("2026-08-03T10:48:56.000Z", codexItem("One.")),
        codexItem("One."), codexAt("2026-08-03T10:48:59.000Z", codexReply("One.")),
        codexReply("One.")};
    std::minstd_rand random(1);
    for (int run = 0; run < 300; ++run) {
        std::string content = codexTurn;
        for (int line = 0; line < 12; ++line) content += parts[random() % parts.size()];
        content += codexCall;
        const auto ids = idsOf(content);
        const auto reading =
            CodexItemsReader().readSince(dir / "session.jsonl", TailOffset::byte(0));
        Texts live;
        for (const auto& record : reading.records) {
            auto message = CodexParser().parse(record);
            if (!message && record.asJsonl() == nullptr) message = CodexItemParser().parse(record);
            if (message) live.insert(live.begin(), message->messageId);
        }
        EXPECT_EQ(ids, live) << content;
    }
}

TEST_F(AgentHistory, CodexPagesATurnThatIsTooLongToKeep) {
    std::string content;
    for (int part = 0; part < 9; ++part) {
        content += codexItem("One.") + codexReply("One.");
        for (int line = 0; line < 4; ++line)
            content += codexCall.substr(0, codexCall.size() - 2) + R"(,"data":")" +
                       std::string(300'000, 'x') + "\"}\n";
    }
    EXPECT_EQ(paged(HistorySource::codex, content), Texts(9, "One."));
}

TEST_F(AgentHistory, PiPagesItsLines) {
    EXPECT_EQ(paged(HistorySource::pi, pi("a", "One.") + "junk\n" + pi("b", "Two.")),
              (Texts{"Two.", "One."}));
}

TEST_F(AgentHistory, GeminiPagesADocument) {
    const auto document = [](const std::string& messages) {
        return R"({"messages":[)" + messages + "]}";
    };
    EXPECT_EQ(paged(HistorySource::gemini,
                    document(gemini("a", "One.") + R"(,{"type":"user","content":"Hm."},)" +
                             gemini("b", "Two.") + "," + gemini("c", "Three.")),
                    "session.json"),
              (Texts{"Three.", "Two.", "One."}));
    for (const auto* broken : {"", "x", "[]", "{}", R"({"messages":[1]})"})
        EXPECT_TRUE(paged(HistorySource::gemini, broken, "session.json").empty()) << broken;
}

TEST_F(AgentHistory, GeminiPagesLinesAndRepeatsThemAsTheyStand) {
    EXPECT_EQ(paged(HistorySource::gemini,
                    geminiLine("a", "One.") + geminiLine("b", "Two.") + geminiLine("b", "Two.")),
              (Texts{"Two.", "Two.", "One."}));
}

TEST_F(AgentHistory, GeminiPagesTheLastVersionOfEachMessage) {
    EXPECT_EQ(paged(HistorySource::gemini, geminiHeader + geminiLine("a", "One") +
                                               geminiLine("a", "One.") + geminiLine("b", "") +
                                               geminiLine("b", "Two.")),
              (Texts{"Two.", "One."}));
}

TEST_F(AgentHistory, GeminiPagesNothingThatWasTakenBack) {
    const std::string three =
        geminiHeader + geminiLine("a", "A.") + geminiLine("b", "B.") + geminiLine("c", "C.");
    EXPECT_EQ(paged(HistorySource::gemini, three + rewindTo("b") + geminiLine("d", "D.")),
              (Texts{"D.", "A."}));
    EXPECT_EQ(paged(HistorySource::gemini, three + rewindTo("c") + geminiLine("d", "D.") +
                                               rewindTo("b") + geminiLine("e", "E.")),
              (Texts{"E.", "A."}));
    // What the newer one goes back to had been taken back already: nothing is left.
    EXPECT_EQ(paged(HistorySource::gemini, three + rewindTo("b") + rewindTo("c")), Texts{});
    EXPECT_EQ(paged(HistorySource::gemini, three + rewindTo("nobody")), Texts{});
}

TEST_F(AgentHistory, GeminiPagesNothingBeforeASetOfMessages) {
    EXPECT_EQ(
        paged(HistorySource::gemini, geminiHeader + geminiLine("a", "A.") +
                                         R"({"$set":{"messages":[)" + gemini("b", "B.") + "," +
                                         gemini("c", "C.") + "]}}\n" + geminiLine("d", "D.")),
        (Texts{"D.", "C.", "B."}));
}

TEST_F(AgentHistory, ASubAgentsFileOfClaudeCodeHasNone) {
    const std::string line =
        R"({"type":"assistant","uuid":"u","message":{"content":[{"type":"text","text":"A."}]}})"
        "\n";
    EXPECT_EQ(paged(HistorySource::claudeCode, line), Texts{"A."});
    EXPECT_TRUE(paged(HistorySource::claudeCode, line, "agent-1.jsonl").empty());
}

struct Source {
    const char* agent;
    HistorySource source;
    const char* extension;
};

class RealSession : public testing::TestWithParam<Source> {};

/// Live, from the beginning, and backward, from the end: the same messages under the same ids.
TEST_P(RealSession, PagesTheMessagesThatAreHeardLive) {
    const auto& [agent, source, extension] = GetParam();
    const auto files = test::transcripts(agent, extension);
    if (files.empty()) GTEST_SKIP();
    const auto& reader = *LiveTailReaderRegistry::reader(agent);
    for (const auto& file : files) {
        const auto start = TailOffset::of(reader.initialOffset(file.path).kind(), 0);
        MessageCounter::Ids live;
        for (const auto& record : reader.readSince(file.path, start).records)
            if (const auto message = reader.parser().parse(record)) live.insert(message->messageId);
        const std::atomic<bool> never = false;
        EXPECT_EQ(MessageCounter::messageIds(file.path, source, never), live) << file.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Agents, RealSession,
                         testing::Values(Source{"codex", HistorySource::codex, ".jsonl"},
                                         Source{"gemini", HistorySource::gemini, ".json"},
                                         Source{"gemini", HistorySource::gemini, ".jsonl"},
                                         Source{"pi", HistorySource::pi, ".jsonl"}));

}  // namespace
}  // namespace sonra
