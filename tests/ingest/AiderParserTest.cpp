#include "ingest/AiderParser.h"

#include <gtest/gtest.h>

#include "ingest/Md5.h"

namespace sonra {
namespace {

std::optional<HistoryMessage> parse(const std::string& bytes) {
    return AiderParser().parse(TranscriptRecord::jsonl(bytes));
}

TEST(AiderParsing, NamesAnAnswerByTheTurnsTimeAndItsBody) {
    const auto message =
        parse(" aider-ts:2026-05-03 08:00:00\naider response\n\n  Applied the edit.\n\n");
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->text, "Applied the edit.");
    EXPECT_EQ(message->messageId, md5Prefix16("2026-05-03 08:00:00Applied the edit."));
    EXPECT_EQ(message->timestamp, Timestamp{});
}

TEST(AiderParsing, NamesAnAnswerWithoutATimeByItsBodyAlone) {
    const auto message = parse("aider response\nDone.\n");
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, md5Prefix16("Done."));
    EXPECT_EQ(parse(" aider-ts:\naider response\nDone."), message);
}

TEST(AiderParsing, TakesAHeaderInAnyCaseAndWithMoreWords) {
    EXPECT_TRUE(parse("AIDER Response (3 files)\nDone.").has_value());
    EXPECT_TRUE(parse("  aider response  \nDone.").has_value());
    EXPECT_FALSE(parse("the aider response\nDone.").has_value());
    EXPECT_FALSE(parse("#### aider response\nDone.").has_value());
}

TEST(AiderParsing, KeepsTheLinesOfTheBodyAsTheyAre) {
    const auto message = parse("aider response\r\nOne.\r\n\r\n# Two\n> three\r\n");
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->text, "One.\r\n\r\n# Two\n> three");
}

TEST(AiderParsing, FindsNothingInPreambleTimesAndPrompts) {
    EXPECT_FALSE(parse("aider chat started at 2026-05-03 07:59:00\nsome preamble").has_value());
    EXPECT_FALSE(parse("2026-05-03 08:00:00\n").has_value());
    EXPECT_FALSE(parse("> please do a thing").has_value());
}

TEST(AiderParsing, FindsNothingWithoutABody) {
    EXPECT_FALSE(parse("aider response").has_value());
    EXPECT_FALSE(parse("aider response\n \n\t\n").has_value());
    EXPECT_FALSE(parse("").has_value());
}

TEST(AiderParsing, FindsNothingBehindATimeThatDoesNotEnd) {
    EXPECT_FALSE(parse(" aider-ts:2026-05-03 08:00:00").has_value());
    EXPECT_FALSE(parse(" aider-ts:2026-05-03 08:00:00\naider response").has_value());
}

TEST(AiderParsing, FindsNothingInBytesThatAreNotUtf8) {
    EXPECT_FALSE(parse("aider response\nDone \xFF.").has_value());
}

TEST(AiderParsing, FindsNothingInObjects) {
    EXPECT_FALSE(
        AiderParser().parse(TranscriptRecord::jsonObject({{"text", "Done."}})).has_value());
}

}  // namespace
}  // namespace sonra
