#include <gtest/gtest.h>

#include "ingest/PiReader.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

std::string piLine(const std::string& id, const std::string& content,
                   const std::string& role = "assistant") {
    return R"({"type":"message","id":")" + id +
           R"(","parentId":null,"timestamp":"2026-06-04T07:20:00.000Z","message":{"id":"inner",)"
           R"("role":")" +
           role + R"(","content":)" + content + "}}";
}

const std::string helloContent = R"([{"type":"text","text":"Hello."}])";

std::optional<HistoryMessage> parsePi(const std::string& text) {
    return PiParser().parse(TranscriptRecord::jsonl(text));
}

TEST(PiParser, TakesTheIdOfTheRecordNotTheOneInsideTheMessage) {
    const auto message = parsePi(piLine("deadbeef", helloContent));
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, "deadbeef");
    EXPECT_EQ(message->text, "Hello.");
    EXPECT_EQ(message->timestamp.time_since_epoch(), std::chrono::milliseconds(1780557600000));
}

TEST(PiParser, LeavesTheIdEmptyWhereTheRecordHasNone) {
    const std::string rest =
        R"("message":{"id":"inner","role":"assistant","content":)" + helloContent + "}}";
    EXPECT_EQ(parsePi(R"({"type":"message",)" + rest)->messageId, "");
    EXPECT_EQ(parsePi(R"({"type":"message","id":7,)" + rest)->messageId, "");
}

TEST(PiParser, JoinsTextsAndPassesOverThinkingAndCalls) {
    EXPECT_EQ(
        parsePi(piLine("a", R"([{"type":"thinking","thinking":"Hm.","text":"Hm."},)"
                            R"({"type":"text","text":" One."},{"type":"toolCall","name":"bash"},)"
                            R"({"type":"text","text":"Two.\n"}])"))
            ->text,
        "One.\nTwo.");
}

class PiLineWithoutAMessage : public testing::TestWithParam<std::string> {};

TEST_P(PiLineWithoutAMessage, IsAbsent) {
    EXPECT_FALSE(parsePi(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(Lines, PiLineWithoutAMessage,
                         testing::Values("", "nonsense", "7",
                                         R"({"type":"session","id":"a","version":3})",
                                         R"({"type":"message","id":"a"})",
                                         R"({"type":"message","id":"a","message":"Hi."})",
                                         R"({"type":"compaction","id":"a","summary":"Hi."})",
                                         piLine("a", helloContent, "user"),
                                         piLine("a", helloContent, "toolResult"),
                                         piLine("a", R"("Hello.")"), piLine("a", "[]"),
                                         piLine("a", R"([{"type":"text","text":"\t"}])"),
                                         piLine("a", R"([{"type":"text","text":"Hello."},null])"),
                                         // Two records on a line are no record.
                                         piLine("a", helloContent) + piLine("b", helloContent)));

TEST(PiReader, APartialLineFreezesTheCursorUntilItIsComplete) {
    const test::TempDir dir;
    const std::string path = dir / "session.jsonl";
    const std::string whole = piLine("deadbeef", helloContent);
    const PiReader reader;
    test::writeFile(path, whole.substr(0, 60));
    const auto before = reader.readSince(path, TailOffset::byte(0));
    EXPECT_TRUE(before.records.empty());
    EXPECT_EQ(before.newOffset, TailOffset::byte(0));
    test::appendFile(path, whole.substr(60) + "\n");
    const auto after = reader.readSince(path, TailOffset::byte(0));
    ASSERT_EQ(after.records.size(), 1U);
    EXPECT_EQ(reader.parser().parse(after.records[0])->messageId, "deadbeef");
    EXPECT_EQ(after.newOffset, reader.initialOffset(path));
}

TEST(PiReader, AnOffsetPastTheEndYieldsNothing) {
    const test::TempDir dir;
    test::writeFile(dir / "session.jsonl", piLine("a", helloContent) + "\n");
    const auto far = TailOffset::byte(100000);
    const auto reading = PiReader().readSince(dir / "session.jsonl", far);
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.newOffset, far);
}

}  // namespace
}  // namespace sonra
