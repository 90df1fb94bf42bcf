#include "ingest/ClaudeCodeParser.h"

#include <gtest/gtest.h>

#include <unordered_set>

namespace sonra {
namespace {

std::optional<HistoryMessage> parseLine(const std::string& line) {
    return ClaudeCodeParser().parse(TranscriptRecord::jsonl(line));
}

std::string textOf(const std::string& line) {
    const auto message = parseLine(line);
    return message ? message->text : "(absent)";
}

std::string messageLine(const std::string& content, const std::string& more = "") {
    return R"({"type":"assistant","uuid":"u-1")" + more + R"(,"message":{"id":"m-1","content":)" +
           content + "}}";
}

const std::string hello = R"([{"type":"text","text":"Hello."}])";

TEST(ClaudeCodeParser, ReadsAnAssistantLine) {
    const auto message =
        parseLine(messageLine(hello, R"(,"timestamp":"2026-05-01T10:00:00.250Z")"));
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, "u-1");
    EXPECT_EQ(message->text, "Hello.");
    EXPECT_EQ(message->timestamp.time_since_epoch(), std::chrono::milliseconds(1777629600250));
}

TEST(ClaudeCodeParser, GivesTheMomentOf1970WithoutATimestamp) {
    EXPECT_EQ(parseLine(messageLine(hello))->timestamp, Timestamp{});
    EXPECT_EQ(parseLine(messageLine(hello, R"(,"timestamp":"soon")"))->timestamp, Timestamp{});
    EXPECT_EQ(parseLine(messageLine(hello, R"(,"timestamp":12)"))->timestamp, Timestamp{});
}

class LineWithoutAMessage : public testing::TestWithParam<std::string> {};

TEST_P(LineWithoutAMessage, IsAbsent) {
    EXPECT_EQ(textOf(GetParam()), "(absent)");
}

INSTANTIATE_TEST_SUITE_P(NotJson, LineWithoutAMessage,
                         testing::Values("", " ", "not json", "{\"type\":\"assistant\"",
                                         messageLine(hello) + "x",
                                         messageLine("[{\"type\":\"text\",\"text\":\"\xFF\"}]")));

INSTANTIATE_TEST_SUITE_P(NotAnObject, LineWithoutAMessage,
                         testing::Values("null", "12", "\"assistant\"", "true",
                                         "[" + messageLine(hello) + "]"));

INSTANTIATE_TEST_SUITE_P(
    OtherTypes, LineWithoutAMessage,
    testing::Values(
        R"({"message":{"content":[{"type":"text","text":"Hi."}]}})",
        R"({"type":"user","message":{"content":[{"type":"text","text":"Hi."}]}})",
        R"({"type":"Assistant","message":{"content":[{"type":"text","text":"Hi."}]}})",
        R"({"type":["assistant"],"message":{"content":[{"type":"text","text":"Hi."}]}})",
        R"({"type":"summary","summary":"Hi."})"));

INSTANTIATE_TEST_SUITE_P(
    OtherContent, LineWithoutAMessage,
    testing::Values(R"({"type":"assistant"})", R"({"type":"assistant","message":"Hi."})",
                    R"({"type":"assistant","message":{"id":"m"}})",
                    R"({"type":"assistant","message":[{"type":"text","text":"Hi."}]})",
                    messageLine(R"("Hi.")"), messageLine("null"), messageLine("{}"),
                    messageLine("[]"), messageLine(R"(["Hi."])"),
                    messageLine(R"([{"type":"text","text":"Hi."},"Hi."])"),
                    messageLine(R"([{"type":"text","text":"Hi."},null])")));

INSTANTIATE_TEST_SUITE_P(
    NoText, LineWithoutAMessage,
    testing::Values(messageLine(R"([{"type":"tool_use","name":"Bash","input":{}}])"),
                    messageLine(R"([{"type":"thinking","text":"Hm."}])"),
                    messageLine(R"([{"text":"Hi."}])"), messageLine(R"([{"type":"text"}])"),
                    messageLine(R"([{"type":"text","text":5}])"),
                    messageLine(R"([{"type":"text","text":""}])"),
                    messageLine(R"([{"type":"text","text":" \n\t\u00a0\u2028"}])")));

TEST(ClaudeCodeParser, DropsTheTurnsOfSubAgents) {
    EXPECT_EQ(textOf(messageLine(hello, R"(,"isSidechain":true)")), "(absent)");
}

TEST(ClaudeCodeParser, PassesWhateverIsNotASidechain) {
    for (const auto* value : {"false", "null", "1", "\"true\"", "[true]"})
        EXPECT_EQ(textOf(messageLine(hello, R"(,"isSidechain":)" + std::string(value))), "Hello.")
            << value;
}

TEST(ClaudeCodeParser, TakesOnlyTheTextsOfAMixedReply) {
    EXPECT_EQ(textOf(messageLine(
                  R"([{"type":"thinking","thinking":"Hm."},{"type":"text","text":"Done."},)"
                  R"({"type":"tool_use","id":"t","name":"Bash","input":{"text":"ls"}}])")),
              "Done.");
}

TEST(ClaudeCodeParser, JoinsTwoTextsWithOneLineFeed) {
    EXPECT_EQ(
        textOf(messageLine(R"([{"type":"text","text":"One."},{"type":"text","text":"Two."}])")),
        "One.\nTwo.");
}

TEST(ClaudeCodeParser, TrimsTheJoinedTextOnlyAtItsEnds) {
    EXPECT_EQ(textOf(messageLine(R"([{"type":"text","text":""},{"type":"text","text":"\n One. "},)"
                                 R"({"type":"text","text":"\tTwo.\u00a0\r\n"}])")),
              "One. \n\tTwo.");
}

TEST(ClaudeCodeParser, TakesTheMessagesIdWithoutAUuid) {
    const std::string body = R"("message":{"id":"m-1","content":)" + hello + "}}";
    EXPECT_EQ(parseLine(R"({"type":"assistant",)" + body)->messageId, "m-1");
    EXPECT_EQ(parseLine(R"({"type":"assistant","uuid":7,)" + body)->messageId, "m-1");
    EXPECT_EQ(parseLine(R"({"type":"assistant","uuid":"",)" + body)->messageId, "");
}

TEST(ClaudeCodeParser, LeavesTheIdEmptyWithNeither) {
    const std::string body = R"("content":)" + hello + "}}";
    EXPECT_EQ(parseLine(R"({"type":"assistant","message":{)" + body)->messageId, "");
    EXPECT_EQ(parseLine(R"({"type":"assistant","message":{"id":7,)" + body)->messageId, "");
}

TEST(ClaudeCodeParser, KeepsAReplyWithALoneSurrogate) {
    EXPECT_EQ(textOf(messageLine(R"([{"type":"text","text":"A \ud83d B"}])")), "A \uFFFD B");
}

TEST(ClaudeCodeParser, TakesTheLastOfDuplicateKeys) {
    EXPECT_EQ(textOf(R"({"type":"user",)" + messageLine(hello).substr(1)), "Hello.");
}

TEST(ClaudeCodeParser, TakesADecodedObjectAsItIs) {
    const ClaudeCodeParser parser;
    const auto object = json::parse(messageLine(hello));
    const auto message = parser.parse(TranscriptRecord::jsonObject(*object));
    EXPECT_EQ(message, parseLine(messageLine(hello)));
    EXPECT_FALSE(parser.parse(TranscriptRecord::jsonObject(Json::array({1}))).has_value());
    EXPECT_FALSE(parser.parse(TranscriptRecord::jsonObject(Json())).has_value());
}

TEST(HistoryMessage, IsHashedByItsValue) {
    const HistoryMessage message{"id", "text", Timestamp(std::chrono::seconds(1))};
    std::unordered_set<HistoryMessage> set{message};
    EXPECT_TRUE(set.contains(message));
    EXPECT_FALSE(set.contains({"id", "text", Timestamp(std::chrono::seconds(2))}));
    EXPECT_FALSE(set.contains({"id", "other", message.timestamp}));
    EXPECT_FALSE(set.contains({"other", "text", message.timestamp}));
}

}  // namespace
}  // namespace sonra
