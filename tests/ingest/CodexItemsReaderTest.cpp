#include "ingest/CodexItemsReader.h"

#include <gtest/gtest.h>

#include "ingest/CodexReader.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string noon = "2026-08-03T10:48:56.000Z";

std::string line(const std::string& type, const std::string& payload) {
    return R"({"timestamp":")" + noon + R"(","ordinal":1,"type":")" + type + R"(","payload":)" +
           payload + "}\n";
}

std::string item(const std::string& text, const std::string& type = "AgentMessage") {
    return line("event_msg", R"({"type":"item_completed","item":{"type":")" + type +
                                 R"(","id":"i","content":[{"type":"Text","text":")" + text +
                                 R"("}]}})");
}

std::string response(const std::string& text) {
    return line(
        "response_item",
        R"({"type":"message","role":"assistant","content":[{"type":"output_text","text":")" + text +
            R"("}]})");
}

const std::string call = line("response_item", R"({"type":"function_call"})");
const std::string tokens = line("event_msg", R"({"type":"token_count"})");
const std::string reasoning = line("response_item", R"({"type":"reasoning"})");
const std::string asked = line("event_msg", R"({"type":"user_message","message":"Please."})");

class CodexItems : public testing::Test {
  protected:
    void expectSaid(const std::string& appended, const std::vector<std::string>& texts) {
        test::appendFile(path, appended);
        now = std::chrono::system_clock::now();
        expectSaidNow(texts);
    }
    void expectSaidAfterQuiet(const std::vector<std::string>& texts) {
        now += QuietFile::enough;
        expectSaidNow(texts);
    }
    void expectSaidNow(const std::vector<std::string>& texts) {
        std::vector<std::string> said;
        const auto reading = reader.readSince(path, cursor);
        cursor = cursor.advanced(reading.newOffset);
        for (const auto& record : reading.records) {
            auto message = CodexParser().parse(record);
            if (!message && record.asJsonObject() != nullptr)
                message = reader.parser().parse(record);
            if (message) said.push_back(message->text);
        }
        EXPECT_EQ(said, texts);
    }

    test::TempDir dir;
    std::string path = dir / "rollout.jsonl";
    std::chrono::system_clock::time_point now = std::chrono::system_clock::now();
    CodexItemsReader reader{QuietFile([this] { return now; })};
    TailOffset cursor = TailOffset::byte(0);
};

TEST_F(CodexItems, AnItemIsSaidWhenACallFollows) {
    expectSaid(item("One."), {});
    expectSaid(tokens + reasoning, {});
    expectSaid(call, {"One."});
}

TEST_F(CodexItems, AnItemIsSaidAfterQuiet) {
    expectSaid(item("One.") + tokens, {});
    EXPECT_EQ(cursor, TailOffset::byte(0));
    expectSaidAfterQuiet({"One."});
    EXPECT_EQ(cursor, reader.initialOffset(path));
    expectSaidNow({});
}

TEST_F(CodexItems, AnItemIsSaidWhenTheNextOneFollows) {
    expectSaid(item("One.") + item("Two."), {"One."});
    expectSaid(line("event_msg", R"({"type":"task_complete"})"), {"Two."});
}

TEST_F(CodexItems, WhereAResponseItemFollowsOnlyThatIsSaid) {
    expectSaid(item("One.") + tokens + reasoning, {});
    expectSaid(response("One.") + call, {"One."});
}

TEST_F(CodexItems, WhereAResponseItemWentBeforeOnlyThatIsSaid) {
    expectSaid(response("One.") + tokens, {"One."});
    expectSaid(item("One.") + call, {});
}

TEST_F(CodexItems, AResponseItemWithOtherWordsIsAnotherMessage) {
    expectSaid(item("One.") + response("Two."), {"One.", "Two."});
    expectSaid(item("Three.") + call, {"Three."});
}

TEST_F(CodexItems, SameWordsInAnotherTurnAreSaidAgain) {
    expectSaid(response("Done.") + asked + item("Done.") + call, {"Done.", "Done."});
}

TEST_F(CodexItems, OtherItemsAreNotSaid) {
    for (const auto* type : {"UserMessage", "Reasoning", "Plan", "CommandExecution"})
        expectSaid(item("No.", type), {});
    expectSaid(call, {});
}

TEST_F(CodexItems, IdsAreMadeAsThoseOfResponseItems) {
    const auto record = TranscriptRecord::jsonl(item("One."));
    EXPECT_EQ(CodexItemParser().parse(record)->messageId, md5Prefix16("One." + noon));
    EXPECT_FALSE(CodexParser().parse(record).has_value());
}

TEST_F(CodexItems, TranscriptWithoutItemsIsReadAsTheOriginalReaderDoes) {
    test::writeFile(path, response("One.") + "nonsense\n\r\n" + call + response("One.") + "half");
    const auto start = TailOffset::byte(0);
    const auto mine = reader.readSince(path, start);
    const auto original = CodexReader().readSince(path, start);
    EXPECT_EQ(mine.records, original.records);
    EXPECT_EQ(mine.newOffset, original.newOffset);
}

TEST_F(CodexItems, TheSameIsSaidHoweverTheFileGrows) {
    const std::string all = asked + item("One.") + tokens + call + item("Two.") + reasoning +
                            response("Two.") + call + response("Three.") + item("Three.") +
                            item("Four.") + line("event_msg", R"({"type":"task_complete"})");
    std::vector<std::string> said;
    for (std::size_t at = 0; at < all.size(); at += 11) {
        test::appendFile(path, all.substr(at, 11));
        now = std::chrono::system_clock::now();
        const auto reading = reader.readSince(path, cursor);
        cursor = reading.newOffset;
        for (const auto& record : reading.records) {
            auto message = CodexParser().parse(record);
            if (!message && record.asJsonObject() != nullptr)
                message = reader.parser().parse(record);
            if (message) said.push_back(message->text);
        }
    }
    EXPECT_EQ(said, (std::vector<std::string>{"One.", "Two.", "Three.", "Four."}));
}

}  // namespace
}  // namespace sonra
