#include <gtest/gtest.h>

#include "ingest/GeminiReader.h"
#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string geminiNoon = "2026-05-03T08:09:00.000Z";

std::string element(const std::string& content, const std::string& id = "") {
    return "{" + (id.empty() ? "" : R"("id":")" + id + R"(",)") +
           R"("type":"gemini","timestamp":")" + geminiNoon + R"(","content":)" + content + "}";
}

std::optional<HistoryMessage> parseGemini(const std::string& line) {
    return GeminiParser().parse(TranscriptRecord::jsonl(line));
}

std::string geminiText(const std::string& line) {
    const auto message = parseGemini(line);
    return message ? message->text : "(absent)";
}

TEST(GeminiParser, HashesTextAndTimeWhereThereIsNoId) {
    const auto message = parseGemini(element(R"(" Late reply. ")"));
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->text, "Late reply.");
    EXPECT_EQ(message->messageId, md5Prefix16("Late reply." + geminiNoon));
    EXPECT_EQ(message->timestamp.time_since_epoch(), std::chrono::milliseconds(1777795740000));
}

TEST(GeminiParser, KeepsAnIdThatIsATextAndNotEmpty) {
    EXPECT_EQ(parseGemini(element(R"("Hi.")", "g-1"))->messageId, "g-1");
    const auto hashed = md5Prefix16("Hi.");
    EXPECT_EQ(parseGemini(R"({"id":"","type":"gemini","content":"Hi."})")->messageId, hashed);
    EXPECT_EQ(parseGemini(R"({"id":5,"type":"gemini","content":"Hi."})")->messageId, hashed);
}

TEST(GeminiParser, CollectsTheTextsOfAnArrayWhateverTheirType) {
    EXPECT_EQ(
        geminiText(element(R"([{"text":"One."},"loose",{"type":"x","text":"Two."},{"text":3}])")),
        "One.\nTwo.");
}

TEST(GeminiParser, TakesTheTopLevelTextWithoutContent) {
    EXPECT_EQ(geminiText(R"({"type":"gemini","text":"Hi."})"), "Hi.");
    EXPECT_EQ(geminiText(R"({"type":"gemini","content":{"a":1},"text":"Hi."})"), "Hi.");
}

TEST(GeminiParser, FirstPlaceThatAppliesDecidesEvenIfItIsEmpty) {
    EXPECT_EQ(geminiText(R"({"type":"gemini","content":"","text":"Hi."})"), "(absent)");
    EXPECT_EQ(geminiText(R"({"type":"gemini","content":[],"text":"Hi."})"), "(absent)");
}

TEST(GeminiParser, OtherTypesAreAbsent) {
    for (const auto* type : {"user", "info", "error", "Gemini"})
        EXPECT_EQ(geminiText(R"({"type":")" + std::string(type) + R"(","content":"Hi."})"),
                  "(absent)");
    EXPECT_EQ(geminiText(R"({"$set":{"lastUpdated":"now"}})"), "(absent)");
    EXPECT_EQ(geminiText(R"({"content":"Hi."})"), "(absent)");
}

class GeminiReading : public testing::Test {
  protected:
    static std::string document(const std::vector<std::string>& elements) {
        std::string all;
        for (const auto& one : elements) all += (all.empty() ? "" : ",") + one;
        return R"({"sessionId":"s","messages":[)" + all + "]}";
    }
    std::vector<std::string> textsFrom(const std::string& path, TailOffset offset) const {
        std::vector<std::string> texts;
        for (const auto& record : reader.readSince(path, offset).records)
            if (const auto message = reader.parser().parse(record)) texts.push_back(message->text);
        return texts;
    }

    test::TempDir dir;
    std::string json = dir / "session.json";
    std::string lines = dir / "session.jsonl";
    GeminiReader reader;
};

TEST_F(GeminiReading, YieldsExactlyTheMessageByWhichARewrittenDocumentHasGrown) {
    test::writeFile(json, document({element(R"("One.")"), element(R"("Two.")")}));
    const auto end = reader.initialOffset(json);
    EXPECT_EQ(end, TailOffset::messageIndex(2));
    EXPECT_TRUE(reader.readSince(json, end).records.empty());
    EXPECT_EQ(reader.readSince(json, end).newOffset, end);
    test::writeFile(json, document({element(R"("One, with more words.")"), element(R"("Two.")"),
                                    element(R"("Three.")")}));
    const auto reading = reader.readSince(json, end);
    ASSERT_EQ(reading.records.size(), 1U);
    EXPECT_NE(reading.records[0].asJsonObject(), nullptr);
    EXPECT_EQ(reader.parser().parse(reading.records[0])->text, "Three.");
    EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(3));
    EXPECT_EQ(reader.readSince(json, TailOffset::messageIndex(0)).records.size(), 3U);
}

TEST_F(GeminiReading, ADocumentsNameIsComparedInLowerCase) {
    const std::string loud = dir / "session.JSON";
    test::writeFile(loud, document({element(R"("One.")")}));
    EXPECT_EQ(reader.initialOffset(loud), TailOffset::messageIndex(1));
}

TEST_F(GeminiReading, ADocumentWithoutMessagesHasNone) {
    for (const std::string content :
         {"", "x", "[]", "{}", R"({"messages":{}})", R"({"messages":[1]})", R"({"messages":[)"}) {
        test::writeFile(json, content);
        EXPECT_EQ(reader.initialOffset(json), TailOffset::messageIndex(0)) << content;
        const auto reading = reader.readSince(json, TailOffset::messageIndex(0));
        EXPECT_TRUE(reading.records.empty()) << content;
        EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(0)) << content;
    }
}

TEST_F(GeminiReading, ADocumentThatIsBeingWrittenLeavesTheCursor) {
    const auto whole = document({element(R"("One.")"), element(R"("Two.")")});
    test::writeFile(json, whole.substr(0, whole.size() - 3));
    const auto reading = reader.readSince(json, TailOffset::messageIndex(1));
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.newOffset, TailOffset::messageIndex(1));
    test::writeFile(json, whole);
    EXPECT_EQ(textsFrom(json, reading.newOffset), std::vector<std::string>{"Two."});
}

TEST_F(GeminiReading, AMissingFileYieldsNothing) {
    EXPECT_EQ(reader.initialOffset(json), TailOffset::messageIndex(0));
    EXPECT_EQ(reader.initialOffset(lines), TailOffset::byte(0));
    EXPECT_TRUE(reader.readSince(json, TailOffset::messageIndex(3)).records.empty());
    EXPECT_EQ(reader.readSince(json, TailOffset::messageIndex(3)).newOffset,
              TailOffset::messageIndex(3));
}

TEST_F(GeminiReading, YieldsThreeLinesAndFreezesAtAPartialOne) {
    const std::string three =
        element(R"("One.")") + "\n" + element(R"("Two.")") + "\n" + element(R"("Three.")") + "\n";
    test::writeFile(lines, three + element(R"([{"text":"Late reply."}])").substr(0, 30));
    const auto reading = reader.readSince(lines, TailOffset::byte(0));
    EXPECT_EQ(reading.records.size(), 3U);
    EXPECT_EQ(reading.newOffset, TailOffset::byte(static_cast<std::int64_t>(three.size())));
    EXPECT_TRUE(reader.readSince(lines, reading.newOffset).records.empty());
    test::appendFile(lines, element(R"([{"text":"Late reply."}])").substr(30) + "\n");
    EXPECT_EQ(textsFrom(lines, reading.newOffset), std::vector<std::string>{"Late reply."});
}

}  // namespace
}  // namespace sonra
