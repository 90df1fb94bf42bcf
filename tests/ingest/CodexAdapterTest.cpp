#include <gtest/gtest.h>

#include "ingest/CodexReader.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string replyTime = "2026-05-02T09:09:00.000Z";

std::string replyLine(const std::string& content, const std::string& timestamp = replyTime) {
    return R"({"type":"response_item","timestamp":")" + timestamp +
           R"(","payload":{"type":"message","role":"assistant","content":)" + content + "}}";
}

std::string saying(const std::string& text, const std::string& timestamp = replyTime) {
    return replyLine(R"([{"type":"output_text","text":")" + text + R"("}])", timestamp);
}

std::optional<HistoryMessage> parseCodex(const std::string& line) {
    return CodexParser().parse(TranscriptRecord::jsonl(line));
}

TEST(CodexParser, ReadsAnAssistantsMessage) {
    const auto message = parseCodex(saying("Late reply."));
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->text, "Late reply.");
    EXPECT_EQ(message->messageId, md5Prefix16("Late reply." + replyTime));
    EXPECT_EQ(message->timestamp.time_since_epoch(), std::chrono::milliseconds(1777712940000));
}

TEST(CodexParser, AnIdIs16LowerCaseHexadecimalDigits) {
    const auto id = parseCodex(saying("Late reply."))->messageId;
    EXPECT_EQ(id.size(), 16U);
    EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), std::string::npos);
}

TEST(CodexParser, SameTextAtAnotherTimeHasAnotherId) {
    const auto one = parseCodex(saying("Done."));
    const auto two = parseCodex(saying("Done.", "2026-05-02T09:10:00.000Z"));
    EXPECT_EQ(one->text, two->text);
    EXPECT_NE(one->messageId, two->messageId);
}

TEST(CodexParser, MakesTheIdOfTheWordsBeforeTheyAreTrimmed) {
    const auto message = parseCodex(saying("  Done.\\n"));
    EXPECT_EQ(message->text, "Done.");
    EXPECT_EQ(message->messageId, md5Prefix16("  Done.\n" + replyTime));
}

TEST(CodexParser, MakesTheIdOfTheWordsAloneWithoutATimeThatIsAText) {
    for (const std::string time : {"", R"("timestamp":12,)", R"("timestamp":null,)"}) {
        const auto message =
            parseCodex("{" + time +
                       R"("type":"response_item","payload":{"type":"message","role":"assistant",)"
                       R"("content":[{"type":"output_text","text":"Hi."}]}})");
        ASSERT_TRUE(message.has_value()) << time;
        EXPECT_EQ(message->messageId, md5Prefix16("Hi.")) << time;
        EXPECT_EQ(message->timestamp, Timestamp{}) << time;
    }
}

TEST(CodexParser, JoinsTextsWithOneLineFeedAndPassesOverOthers) {
    EXPECT_EQ(parseCodex(replyLine(R"([{"type":"output_text","text":"One."},)"
                                   R"({"type":"refusal","text":"No."},{"type":"output_text"},)"
                                   R"({"type":"output_text","text":"Two."}])"))
                  ->text,
              "One.\nTwo.");
}

class CodexLineWithoutAMessage : public testing::TestWithParam<std::string> {};

TEST_P(CodexLineWithoutAMessage, IsAbsent) {
    EXPECT_FALSE(parseCodex(GetParam()).has_value());
}

INSTANTIATE_TEST_SUITE_P(
    Lines, CodexLineWithoutAMessage,
    testing::Values(
        "", "x", "[]", "{}", R"({"type":"response_item"})",
        R"({"type":"response_item","payload":[]})",
        R"({"type":"event_msg","payload":{"type":"agent_message","message":"Hi."}})",
        R"({"type":"event_msg","payload":{"type":"message","role":"assistant","content":[{"type":"output_text","text":"Hi."}]}})",
        R"({"type":"response_item","payload":{"type":"message","role":"user","content":[{"type":"output_text","text":"Hi."}]}})",
        R"({"type":"response_item","payload":{"type":"reasoning","role":"assistant","content":[{"type":"output_text","text":"Hi."}]}})",
        R"({"type":"compacted","payload":{"message":"Hi.","replacement_history":[{"type":"message","role":"assistant","content":[{"type":"output_text","text":"Hi."}]}]}})",
        replyLine(R"("Hi.")"), replyLine("[]"),
        replyLine(R"([{"type":"output_text","text":" \n"}])"),
        replyLine(R"([{"type":"input_text","text":"Hi."}])"),
        replyLine(R"([{"type":"output_text","text":"Hi."},"Hi."])")));

TEST(CodexReader, ReadsLinesBehindTheCursorAndStopsAtTheEnd) {
    const test::TempDir dir;
    const std::string path = dir / "rollout.jsonl";
    test::writeFile(path, saying("One.") + "\n");
    const CodexReader reader;
    EXPECT_EQ(reader.id(), "codex");
    EXPECT_EQ(reader.parser().id(), "codex");
    const auto end = reader.initialOffset(path);
    test::appendFile(path, saying("Two.") + "\n" + saying("Three."));
    const auto reading = reader.readSince(path, end);
    ASSERT_EQ(reading.records.size(), 1U);
    EXPECT_EQ(reader.parser().parse(reading.records[0])->text, "Two.");
    EXPECT_TRUE(reader.readSince(path, reading.newOffset).records.empty());
    EXPECT_EQ(reader.readSince(path, reading.newOffset).newOffset, reading.newOffset);
}

TEST(CodexReader, AnOffsetPastTheEndYieldsNothing) {
    const test::TempDir dir;
    test::writeFile(dir / "rollout.jsonl", saying("One.") + "\n");
    const auto far = TailOffset::byte(100000);
    const auto reading = CodexReader().readSince(dir / "rollout.jsonl", far);
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.newOffset, far);
}

}  // namespace
}  // namespace sonra
