#include "ingest/OpenCodeParser.h"

#include <gtest/gtest.h>

#include "ingest/Md5.h"

namespace sonra {
namespace {

std::optional<HistoryMessage> parseOpenCode(const std::string& bytes) {
    return OpenCodeParser().parse(TranscriptRecord::jsonl(bytes));
}

TEST(OpenCodeParsing, NamesAMessageWithoutAnIdByTextAndTime) {
    const auto message = parseOpenCode(
        R"({"role":"assistant","content":"A newer turn arrives.","createdAt":"2026-06-01T00:03:00Z"})");
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, "7a31f442612d518b");
    EXPECT_EQ(message->text, "A newer turn arrives.");
    EXPECT_EQ(message->timestamp, Timestamp{});
}

TEST(OpenCodeParsing, KeepsAnId) {
    EXPECT_EQ(parseOpenCode(R"({"role":"assistant","id":"m1","text":"Hello."})")->messageId, "m1");
    EXPECT_EQ(parseOpenCode(R"({"role":"assistant","id":"","text":"Hello."})")->messageId,
              md5Prefix16("Hello."));
    EXPECT_EQ(
        parseOpenCode(R"({"role":"assistant","id":7,"text":" Hello.\n","createdAt":7})")->messageId,
        md5Prefix16("Hello."));
}

TEST(OpenCodeParsing, TakesTextFromTheFirstPlaceThatHasIt) {
    EXPECT_EQ(parseOpenCode(R"({"role":"assistant","content":" One. ","text":"Two."})")->text,
              "One.");
    EXPECT_EQ(parseOpenCode(R"({"role":"assistant","content":[{"text":"One."},{"type":"tool"},7,
                        {"type":"x","text":"Two."}],"text":"Three."})")
                  ->text,
              "One.\nTwo.");
    EXPECT_EQ(parseOpenCode(R"({"role":"assistant","content":{},"text":"Three."})")->text,
              "Three.");
}

TEST(OpenCodeParsing, FindsNothingWithoutText) {
    EXPECT_FALSE(
        parseOpenCode(R"({"role":"assistant","content":[],"text":"Not looked at."})").has_value());
    EXPECT_FALSE(parseOpenCode(R"({"role":"assistant","content":" \n "})").has_value());
    EXPECT_FALSE(parseOpenCode(R"({"role":"assistant","text":7})").has_value());
    EXPECT_FALSE(parseOpenCode(R"({"role":"assistant"})").has_value());
}

TEST(OpenCodeParsing, FindsNothingOfOthers) {
    EXPECT_FALSE(parseOpenCode(R"({"role":"user","text":"Hello."})").has_value());
    EXPECT_FALSE(parseOpenCode(R"({"text":"Hello."})").has_value());
    EXPECT_FALSE(parseOpenCode(R"(["assistant"])").has_value());
    EXPECT_FALSE(parseOpenCode(R"({"role":"assistant","text":"Hel)").has_value());
}

}  // namespace
}  // namespace sonra
