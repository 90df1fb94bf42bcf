#include "ingest/AiderReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "ingest/Md5.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string preamble = "# aider chat started at 2026-05-03 07:59:00\n\nUsing a model.\n";

std::string turn(const std::string& time, const std::string& body) {
    return "\n#### " + time + "\n> please edit foo.py\n\n#### aider response\n" + body + "\n";
}

class AiderReading : public testing::Test {
  protected:
    void write(const std::string& content) { test::writeFile(path, content); }
    void append(const std::string& content) { test::appendFile(path, content); }
    std::vector<HistoryMessage> messagesFrom(TailOffset offset) const {
        std::vector<HistoryMessage> messages;
        for (const auto& record : reader.readSince(path, offset).records)
            if (auto message = reader.parser().parse(record))
                messages.push_back(*std::move(message));
        return messages;
    }
    void expectNothing(TailOffset offset) const {
        const auto reading = reader.readSince(path, offset);
        EXPECT_TRUE(reading.records.empty());
        EXPECT_EQ(reading.newOffset, offset);
    }

    test::TempDir dir;
    std::string path = dir / ".aider.chat.history.md";
    AiderReader reader;
};

const TailOffset fileStart = TailOffset::byte(0);

TEST_F(AiderReading, TurnsWithTheSameBodyHaveTheirOwnIds) {
    write(preamble + turn("2026-05-03 08:00:00", "Applied edit to foo.py.") +
          turn("2026-05-03 08:05:00", "Applied edit to foo.py."));
    const auto messages = messagesFrom(fileStart);
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].text, messages[1].text);
    EXPECT_EQ(messages[0].messageId, md5Prefix16("2026-05-03 08:00:00Applied edit to foo.py."));
    EXPECT_EQ(messages[1].messageId, md5Prefix16("2026-05-03 08:05:00Applied edit to foo.py."));
}

TEST_F(AiderReading, YieldsNothingAtTheEndOfTheFile) {
    write(preamble + turn("2026-05-03 08:00:00", "Done."));
    const auto end = reader.readSince(path, fileStart).newOffset;
    EXPECT_EQ(end, reader.initialOffset(path));
    expectNothing(end);
    expectNothing(TailOffset::byte(end.intValue() + 100));
}

TEST_F(AiderReading, CutsOneRecordForEachSection) {
    write("# start\n#### 2026-05-03 08:00:00\n> go\n#### aider RESPONSE\nDone.");
    const auto records = reader.readSince(path, fileStart).records;
    const std::vector<TranscriptRecord> expected{
        TranscriptRecord::jsonl("# start"), TranscriptRecord::jsonl("2026-05-03 08:00:00\n> go"),
        TranscriptRecord::jsonl(" aider-ts:2026-05-03 08:00:00\naider RESPONSE\nDone.")};
    EXPECT_EQ(records, expected);
}

TEST_F(AiderReading, SkipsBlankSections) {
    write("\n#### \n#### \n \n#### aider response\nDone.\n#### ");
    EXPECT_EQ(reader.readSince(path, fileStart).records.size(), 1U);
    EXPECT_EQ(messagesFrom(fileStart).size(), 1U);
}

TEST_F(AiderReading, ConsumesALastSectionThatIsNotComplete) {
    write(preamble + "\n#### aider response\nHalf an ans");
    EXPECT_EQ(messagesFrom(fileStart).size(), 1U);
    expectNothing(reader.readSince(path, fileStart).newOffset);
}

TEST_F(AiderReading, ForgetsTheTimeOfATurnThatTheReadBegins) {
    write(preamble);
    const auto seen = reader.initialOffset(path);
    append("#### 2026-05-03 08:00:00\n> go\n\n#### aider response\nDone.\n");
    const auto messages = messagesFrom(seen);
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].messageId, md5Prefix16("Done."));
}

TEST_F(AiderReading, DropsAnAnswerWhoseHeaderBeginsTheRead) {
    write("#### aider response\nDone.\n");
    EXPECT_TRUE(messagesFrom(fileStart).empty());
}

TEST_F(AiderReading, LeavesACharacterThatIsStillBeingWritten) {
    const std::string whole = preamble + "\n#### aider response\nFertig …";
    write(whole.substr(0, whole.size() - 1));
    const auto reading = reader.readSince(path, fileStart);
    EXPECT_EQ(reading.newOffset.intValue(), static_cast<std::int64_t>(whole.size() - 3));
    ASSERT_EQ(messagesFrom(fileStart).size(), 1U);
    EXPECT_EQ(messagesFrom(fileStart)[0].text, "Fertig");
}

TEST_F(AiderReading, StaysBeforeBytesThatAreNotUtf8) {
    write(preamble + "\n#### aider response\nDone \xFF.\n");
    expectNothing(fileStart);
}

TEST_F(AiderReading, YieldsNothingOfWhatIsNoFile) {
    EXPECT_EQ(reader.initialOffset(path), fileStart);
    expectNothing(fileStart);
    expectNothing(TailOffset::byte(7));
    ASSERT_EQ(mkdir(path.c_str(), 0700), 0);
    expectNothing(fileStart);
}

TEST(AiderTimestampHeader, IsExactlyATime) {
    EXPECT_TRUE(AiderReader::isAiderTimestampHeader("2026-05-03 08:00:00"));
    EXPECT_TRUE(AiderReader::isAiderTimestampHeader("9999-99-99 99:99:99"));
}

TEST(AiderTimestampHeader, IsNothingElse) {
    for (const char* line :
         {"", "2026-05-03 08:00:0", "2026-05-03 08:00:000", "2026/05/03 08:00:00",
          "2026-05-03T08:00:00", "2026-05-03 08.00.00", "2026-05-03 08:00:0x",
          " 2026-05-03 08:00:0", "２026-05-03 08:00:0", "aider chat started"})
        EXPECT_FALSE(AiderReader::isAiderTimestampHeader(line)) << line;
}

}  // namespace
}  // namespace sonra
