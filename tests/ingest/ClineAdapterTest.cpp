#include <gtest/gtest.h>

#include "ingest/ClineReader.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

std::string clineMessage(const std::string& content, const std::string& more = "") {
    return R"({"role":"assistant","content":)" + content + more + "}";
}

std::optional<HistoryMessage> parseCline(const std::string& object) {
    return ClineParser().parse(TranscriptRecord::jsonl(object));
}

std::string clineText(const std::string& object) {
    const auto parsed = parseCline(object);
    return parsed ? parsed->text : "(absent)";
}

TEST(ClineParser, HashesTimeAndTextToTheKnownIds) {
    const std::string content = R"("<thinking>plan</thinking>First message after attach.")";
    EXPECT_EQ(clineText(clineMessage(content)), "First message after attach.");
    EXPECT_EQ(parseCline(clineMessage(content, R"(,"ts":2000)"))->messageId, "1084219ef7ab62e2");
    EXPECT_EQ(parseCline(clineMessage(content))->messageId, "6bc9f45bce018919");
}

TEST(ClineParser, MessagesWithoutATimeAreBothNarratedUnderIdsOfTheirOwn) {
    const std::string common(64, 'x');
    const auto one = parseCline(clineMessage("\"" + common + " one\""));
    const auto two = parseCline(clineMessage("\"Another " + common + "\""));
    EXPECT_EQ(one->messageId, md5Prefix16(common));
    EXPECT_EQ(two->messageId, md5Prefix16("Another " + common.substr(0, 56)));
    EXPECT_EQ(one->timestamp, Timestamp{});
}

TEST(ClineParser, HashesTheFirst64CharactersNotBytes) {
    std::string text;
    for (int i = 0; i < 70; ++i) text += "é";
    EXPECT_EQ(parseCline(clineMessage("\"" + text + "\""))->messageId,
              md5Prefix16(std::string_view(text).substr(0, 128)));
}

TEST(ClineParser, WritesTheTimeAsJavaScriptDoes) {
    const auto idWith = [](const std::string& ts) {
        return parseCline(clineMessage(R"("Hi.")", R"(,"ts":)" + ts))->messageId;
    };
    EXPECT_EQ(idWith("1783376868634"), md5Prefix16("1783376868634Hi."));
    EXPECT_EQ(idWith("2000.0"), md5Prefix16("2000Hi."));
    EXPECT_EQ(idWith("2000.5"), md5Prefix16("2000.5Hi."));
    EXPECT_EQ(idWith("-3"), md5Prefix16("-3Hi."));
    EXPECT_EQ(idWith(R"("2000.0")"), md5Prefix16("2000.0Hi."));
    for (const auto* nothing : {"0", "0.0", "-0.0", "null", "true", "[1]", R"("")"})
        EXPECT_EQ(idWith(nothing), md5Prefix16("Hi.")) << nothing;
}

TEST(ClineParser, TakesAResultOutOfItsTags) {
    EXPECT_EQ(
        clineText(clineMessage(
            R"("<attempt_completion><result>A newer turn arrives.</result></attempt_completion>")")),
        "A newer turn arrives.");
}

TEST(ClineParser, ATextOfNothingButCallsIsAbsent) {
    EXPECT_EQ(clineText(clineMessage(
                  R"("<thinking>plan</thinking>\n<read_file><path>a</path></read_file>")")),
              "(absent)");
}

TEST(ClineParser, CollectsTheTextsOfAnArrayAndCollapsesWhiteSpace) {
    EXPECT_EQ(
        clineText(clineMessage(R"([{"type":"text","text":" One.\n\n  Two."},{"type":"tool_use"},)"
                               R"("loose",{"text":"Three.\u00a0\u2003"}])")),
        "One. Two. Three.");
}

TEST(ClineParser, OtherMessagesAreAbsent) {
    EXPECT_EQ(clineText(R"({"role":"user","content":"Hi."})"), "(absent)");
    EXPECT_EQ(clineText(R"({"content":"Hi."})"), "(absent)");
    EXPECT_EQ(clineText(R"({"role":"assistant","text":"Hi."})"), "(absent)");
    EXPECT_EQ(clineText(clineMessage(R"(" \n ")")), "(absent)");
    EXPECT_EQ(clineText(clineMessage("{}")), "(absent)");
    EXPECT_EQ(clineText(clineMessage("[]")), "(absent)");
}

class ClineReading : public testing::Test {
  protected:
    void write(const std::vector<std::string>& messages) {
        std::string all;
        for (const auto& one : messages) all += (all.empty() ? "" : ",") + one;
        test::writeFile(path, "[" + all + "]");
    }
    void expectNothing(TailOffset offset) const {
        const auto reading = reader.readSince(path, offset);
        EXPECT_TRUE(reading.records.empty());
        EXPECT_EQ(reading.newOffset, offset);
    }

    test::TempDir dir;
    std::string path = dir / "api_conversation_history.json";
    ClineReader reader;
    std::string user = R"({"role":"user","content":"Please."})";
};

TEST_F(ClineReading, YieldsTheMessagesBehindTheCursor) {
    write({user, clineMessage(R"("One.")")});
    const auto end = reader.initialOffset(path);
    EXPECT_EQ(end, TailOffset::messageIndex(2));
    expectNothing(end);
    write({user, clineMessage(R"("One.")"), user, clineMessage(R"("Two.")")});
    const auto reading = reader.readSince(path, end);
    ASSERT_EQ(reading.records.size(), 2U);
    EXPECT_FALSE(reader.parser().parse(reading.records[0]).has_value());
    EXPECT_EQ(reader.parser().parse(reading.records[1])->text, "Two.");
    EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(4));
}

TEST_F(ClineReading, AnArrayThatShrankIsWaitedForUntilItIsLonger) {
    write({user, user});
    expectNothing(TailOffset::messageIndex(4));
    write({user, user, user, user});
    expectNothing(TailOffset::messageIndex(4));
    write({user, user, user, user, clineMessage(R"("Five.")")});
    EXPECT_EQ(reader.readSince(path, TailOffset::messageIndex(4)).records.size(), 1U);
}

TEST_F(ClineReading, AMissingFileLeavesTheCursorUntouched) {
    EXPECT_EQ(reader.initialOffset(path), TailOffset::messageIndex(0));
    expectNothing(TailOffset::messageIndex(0));
    expectNothing(TailOffset::messageIndex(4));
}

TEST_F(ClineReading, WhatIsNoArrayOfObjectsIsNothing) {
    for (const auto* content :
         {"", "x", "{}", "[1]", R"([{"role":"assistant"},2])", R"([{"role")"}) {
        test::writeFile(path, content);
        EXPECT_EQ(reader.initialOffset(path), TailOffset::messageIndex(0)) << content;
        expectNothing(TailOffset::messageIndex(0));
    }
}

}  // namespace
}  // namespace sonra
