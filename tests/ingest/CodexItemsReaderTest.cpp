#include "ingest/CodexItemsReader.h"

#include <gtest/gtest.h>

#include "ingest/CodexReader.h"
#include "ingest/FileTime.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string noon = "2026-08-03T10:48:56.000Z";

std::string line(const std::string& type, const std::string& payload,
                 const std::string& time = noon) {
    return R"({"timestamp":")" + time + R"(","ordinal":1,"type":")" + type + R"(","payload":)" +
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

/// As a response item that is written some time after its item.
std::string lateResponse(const std::string& text) {
    return line(
        "response_item",
        R"({"type":"message","role":"assistant","content":[{"type":"output_text","text":")" + text +
            R"("}]})",
        "2026-08-03T10:49:01.250Z");
}

std::string itemOf(const std::string& turn, const std::string& text) {
    return line("event_msg", R"({"type":"item_completed","turn_id":")" + turn +
                                 R"(","item":{"type":"AgentMessage","id":"i","content":)" +
                                 R"([{"type":"Text","text":")" + text + R"("}]}})");
}

std::string responseOf(const std::string& turn, const std::string& text, const std::string& where) {
    return line("response_item", R"({"type":"message","role":"assistant","id":"msg-2",")" + where +
                                     R"(":{"turn_id":")" + turn +
                                     R"("},"content":[{"type":"output_text","text":")" + text +
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
        now = test::writtenAt(path);
        expectSaidNow(texts);
    }
    void expectSaidAfterQuiet(const std::vector<std::string>& texts) {
        now += QuietFile::enough;
        expectSaidNow(texts);
    }
    void expectSaidNow(const std::vector<std::string>& texts) {
        std::vector<std::string> said;
        readOn(said);
        EXPECT_EQ(said, texts);
    }
    void readOn(std::vector<std::string>& said) {
        const auto reading = reader.readSince(path, cursor);
        cursor = cursor.advanced(reading.newOffset);
        for (const auto& record : reading.records) {
            auto message = CodexParser().parse(record);
            if (!message && record.asJsonObject() != nullptr)
                message = reader.parser().parse(record);
            if (message) said.push_back(message->text);
        }
    }

    test::TempDir dir;
    std::string path = dir / "rollout.jsonl";
    std::chrono::system_clock::time_point now;
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

TEST_F(CodexItems, AResponseItemThatComesAfterQuietIsNotSaidAgain) {
    expectSaid(item("One."), {});
    expectSaidAfterQuiet({"One."});
    expectSaid(tokens, {});
    expectSaid(lateResponse("One."), {});
    EXPECT_EQ(cursor, reader.initialOffset(path));
    expectSaid(item("Two.") + lateResponse("Two."), {"Two."});
}

TEST_F(CodexItems, AResponseItemThatComesAfterACallIsNotSaidAgain) {
    expectSaid(item("One.") + call + lateResponse("One."), {"One."});
    expectSaid(lateResponse("One."), {"One."});
}

TEST_F(CodexItems, AResponseItemOfAnItemBeforeTheAttachIsNotSaid) {
    test::writeFile(path, asked + item("One."));
    cursor = reader.initialOffset(path);
    expectSaid(lateResponse("One."), {});
    expectSaid(call + lateResponse("Two."), {"Two."});
}

TEST_F(CodexItems, AResponseItemIsNotSaidAgainByAnotherReader) {
    expectSaid(asked + item("One."), {});
    expectSaidAfterQuiet({"One."});
    test::appendFile(path, lateResponse("One.") + call);
    const auto reading = CodexItemsReader().readSince(path, TailOffset::byte(cursor.intValue()));
    EXPECT_EQ(reading.records,
              std::vector{TranscriptRecord::jsonl(call.substr(0, call.size() - 1))});
}

TEST_F(CodexItems, AnItemThatStillWaitsAtARestartIsSaidByItsResponseItem) {
    expectSaid(asked + item("One."), {});
    test::appendFile(path, response("One."));
    const auto reading = reader.readSince(path, cursor);
    ASSERT_EQ(reading.records.size(), 1U);
    EXPECT_EQ(CodexParser().parse(reading.records[0])->text, "One.");
}

/// Whether it was heard by then or not, so that its id is the same for all.
TEST_F(CodexItems, AnItemIsSaidByItselfIfItsResponseItemIsOfALaterTime) {
    expectSaid(item("One."), {});
    test::appendFile(path, lateResponse("One.") + call);
    const auto reading = reader.readSince(path, cursor);
    ASSERT_EQ(reading.records.size(), 2U);
    ASSERT_NE(reading.records[0].asJsonObject(), nullptr);
    EXPECT_EQ(CodexItemParser().parse(reading.records[0])->messageId, md5Prefix16("One." + noon));
}

TEST_F(CodexItems, AResponseItemAnswersAnItemAnywhereBehindItInItsTurn) {
    expectSaid(response("One.") + call + item("One.") + call, {"One."});
    expectSaid(response("Two.") + call, {"Two."});
    expectSaid(tokens + item("Two.") + call, {});
    expectSaid(item("Two.") + call, {"Two."});
}

TEST_F(CodexItems, AResponseItemThatAnsweredAnItemDoesNotAnswerTheNext) {
    expectSaid(item("One.") + response("One.") + item("One.") + call, {"One.", "One."});
    test::appendFile(path, asked + item("Two.") + response("Two.") + item("Two."));
    cursor = reader.initialOffset(path);
    expectSaid(response("Two.") + call, {});
}

TEST_F(CodexItems, TheSameIsSaidWhereverTheReadingWasBroken) {
    const std::vector<std::string> lines = {asked,
                                            response("One."),
                                            call,
                                            item("One."),
                                            call,
                                            item("Two."),
                                            call,
                                            item("Two."),
                                            lateResponse("Two."),
                                            item("Two."),
                                            tokens,
                                            call,
                                            response("Two."),
                                            item("Six."),
                                            response("Six."),
                                            item("Six."),
                                            call};
    const std::vector<std::string> all = {"One.", "Two.", "Two.", "Two.", "Six.", "Six."};
    for (std::size_t broken = 0; broken <= lines.size(); ++broken) {
        test::writeFile(path, "");
        cursor = TailOffset::byte(0);
        std::vector<std::string> said;
        for (std::size_t at = 0; at < lines.size(); ++at) {
            test::appendFile(path, lines[at]);
            if (at + 1 == broken || at + 1 == lines.size()) readOn(said);
        }
        EXPECT_EQ(said, all) << broken;
    }
}

TEST_F(CodexItems, EachResponseItemAnswersOneItem) {
    expectSaid(item("One.") + call + item("One."), {"One."});
    expectSaidAfterQuiet({"One."});
    expectSaid(lateResponse("One."), {});
    expectSaid(call + lateResponse("One."), {});
    expectSaid(call + lateResponse("One."), {"One."});
}

TEST_F(CodexItems, AnItemThatWasAnsweredTakesNoOtherResponseItem) {
    test::writeFile(path, item("One.") + response("One.") + call);
    cursor = reader.initialOffset(path);
    expectSaid(response("One."), {"One."});
    test::writeFile(path, response("One.") + item("One.") + call);
    cursor = reader.initialOffset(path);
    expectSaid(response("One."), {"One."});
}

TEST_F(CodexItems, AnItemOfAnotherTurnIsNotTakenForAResponseItems) {
    const auto started = line("event_msg", R"({"type":"task_started","turn_id":"2"})");
    for (const auto& border : {asked, started, item("Please.", "UserMessage")}) {
        expectSaid(item("Done.") + call, {"Done."});
        expectSaid(border + response("Done.") + border, {"Done."});
        expectSaid(item("Done.") + border + response("Done.") + border, {"Done.", "Done."});
        test::appendFile(path, item("Done.") + call + border);
        cursor = reader.initialOffset(path);
        expectSaid(response("Done.") + border, {"Done."});
    }
}

TEST_F(CodexItems, TurnsAreToldApartByTheirIdsToo) {
    const std::string meta = "metadata";
    expectSaid(itemOf("1", "Done.") + responseOf("2", "Done.", meta), {"Done.", "Done."});
    expectSaid(asked + responseOf("1", "Done.", meta) + itemOf("2", "Done.") + call,
               {"Done.", "Done."});
    const std::string inner = "internal_chat_message_metadata_passthrough";
    for (const auto& where : {meta, inner}) {
        expectSaid(asked + itemOf("3", "Done.") + call, {"Done."});
        expectSaid(responseOf("4", "Done.", where), {"Done."});
        expectSaid(responseOf("3", "Done.", where), {});
    }
}

TEST_F(CodexItems, AnItemTooFarBackIsForgotten) {
    test::writeFile(path, item("One."));
    for (int lines = 0; lines < 1000; ++lines) test::appendFile(path, tokens);
    ASSERT_GT(reader.initialOffset(path).intValue(), 65536 + 1000);
    cursor = reader.initialOffset(path);
    expectSaid(response("One."), {"One."});
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
        now = test::writtenAt(path);
        readOn(said);
    }
    EXPECT_EQ(said, (std::vector<std::string>{"One.", "Two.", "Three.", "Four."}));
}

}  // namespace
}  // namespace sonra
