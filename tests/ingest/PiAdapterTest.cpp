#include <gtest/gtest.h>

#include "ingest/PiReader.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

std::string line(const std::string& id, const std::string& content,
                 const std::string& role = "assistant") {
    return R"({"type":"message","id":")" + id +
           R"(","parentId":null,"timestamp":"2026-06-04T07:20:00.000Z","message":{"id":"inner",)"
           R"("role":")" +
           role + R"(","content":)" + content + "}}";
}

const std::string hello = R"([{"type":"text","text":"Hello."}])";

std::optional<HistoryMessage> parse(const std::string& text) {
    return PiParser().parse(TranscriptRecord::jsonl(text));
}

TEST(PiParser, TakesTheIdOfTheRecordNotTheOneInsideTheMessage) {
    const auto message = parse(line("deadbeef", hello));
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, "deadbeef");
    EXPECT_EQ(message->text, "Hello.");
    EXPECT_EQ(message->timestamp.time_since_epoch(), std::chrono::milliseconds(1780557600000));
}

TEST(PiParser, LeavesTheIdEmptyWhereTheRecordHasNone) {
    const std::string rest =
        R"("message":{"id":"inner","role":"assistant","content":)" + hello + "}}";
    EXPECT_EQ(parse(R"({"type":"message",)" + rest)->messageId, "");
    EXPECT_EQ(parse(R"({"type":"message","id":7,)" + rest)->messageId, "");
}

TEST(PiParser, JoinsTextsAndPassesOverThinkingAndCalls) {
    EXPECT_EQ(parse(line("a", R"([{"type":"thinking","thinking":"Hm.","text":"Hm."},)"
                              R"({"type":"text","text":" One."},{"type":"toolCall","name":"bash"},)"
                              R"({"type":"text","text":"Two.\n"}])"))
                  ->text,
              "One.\nTwo.");
}

class PiLineWithoutAMessage : public testing::TestWithParam<std::string> {};

TEST_P(PiLineWithoutAMessage, IsAbsent) {
    EXPECT_FALSE(parse(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(Lines, PiLineWithoutAMessage,
                         testing::Values("", "nonsense", "7",
                                         R"({"type":"session","id":"a","version":3})",
                                         R"({"type":"message","id":"a"})",
                                         R"({"type":"message","id":"a","message":"Hi."})",
                                         R"({"type":"compaction","id":"a","summary":"Hi."})",
                                         line("a", hello, "user"), line("a", hello, "toolResult"),
                                         line("a", R"("Hello.")"), line("a", "[]"),
                                         line("a", R"([{"type":"text","text":"\t"}])"),
                                         line("a", R"([{"type":"text","text":"Hello."},null])"),
                                         // Two records on a line are no record.
                                         line("a", hello) + line("b", hello)));

TEST(PiReader, APartialLineFreezesTheCursorUntilItIsComplete) {
    const test::TempDir dir;
    const std::string path = dir / "session.jsonl";
    const std::string whole = line("deadbeef", hello);
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
    test::writeFile(dir / "session.jsonl", line("a", hello) + "\n");
    const auto far = TailOffset::byte(100000);
    const auto reading = PiReader().readSince(dir / "session.jsonl", far);
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.newOffset, far);
}

}  // namespace
}  // namespace sonra
