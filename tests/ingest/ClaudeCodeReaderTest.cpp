#include "ingest/ClaudeCodeReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/TempDir.h"

namespace sonra {
namespace {

const std::string first =
    R"({"type":"assistant","uuid":"u-aaa","timestamp":"2026-05-01T10:00:00.000Z","message":{"id":"m-1","content":[{"type":"text","text":"First reply."}]}})";
const std::string second =
    R"({"type":"assistant","uuid":"u-bbb","message":{"id":"m-2","content":[{"type":"text","text":"Zweite Antwort … fertig."}]}})";

std::int64_t sizeOf(const std::string& text) {
    return static_cast<std::int64_t>(text.size());
}

class ClaudeCodeReading : public testing::Test {
  protected:
    void write(const std::string& content) { test::writeFile(path, content); }
    void append(const std::string& content) { test::appendFile(path, content); }
    LiveTailReader::Reading readFrom(std::int64_t position) const {
        return reader.readSince(path, TailOffset::byte(position));
    }
    void expectNothing(const std::string& url, TailOffset offset) const {
        const auto reading = reader.readSince(url, offset);
        EXPECT_TRUE(reading.records.empty());
        EXPECT_EQ(reading.newOffset, offset);
    }

    test::TempDir dir;
    std::string path = dir / "session.jsonl";
    ClaudeCodeReader reader;
};

std::vector<TranscriptRecord> lines(const std::vector<std::string>& texts) {
    std::vector<TranscriptRecord> records;
    for (const auto& text : texts) records.push_back(TranscriptRecord::jsonl(text));
    return records;
}

TEST_F(ClaudeCodeReading, YieldsTwoCompleteLinesAndTheSize) {
    write(first + "\n" + second + "\n");
    const auto reading = readFrom(0);
    EXPECT_EQ(reading.records, lines({first, second}));
    EXPECT_EQ(reading.newOffset, TailOffset::byte(sizeOf(first) + sizeOf(second) + 2));
    expectNothing(path, reading.newOffset);
}

TEST_F(ClaudeCodeReading, YieldsExactlyTheLineThatWasAppended) {
    write(first + "\n");
    const auto seen = reader.initialOffset(path);
    append(second + "\n");
    const auto reading = reader.readSince(path, seen);
    EXPECT_EQ(reading.records, lines({second}));
    EXPECT_EQ(reading.newOffset, reader.initialOffset(path));
}

TEST_F(ClaudeCodeReading, WaitsForTheLineFeedOfTheLastLine) {
    write(first + "\n");
    const auto start = reader.initialOffset(path);
    append(second.substr(0, 80));
    expectNothing(path, start);
    append(second.substr(80));
    expectNothing(path, start);
    append("\n");
    const auto reading = reader.readSince(path, start);
    ASSERT_EQ(reading.records, lines({second}));
    const auto message = reader.parser().parse(reading.records.front());
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->messageId, "u-bbb");
    EXPECT_EQ(message->text, "Zweite Antwort … fertig.");
}

TEST_F(ClaudeCodeReading, WaitsForALineThatEndsInsideACharacter) {
    const auto cut = second.find("…") + 2;
    write(first + "\n" + second.substr(0, cut));
    const auto reading = readFrom(0);
    EXPECT_EQ(reading.records, lines({first}));
    EXPECT_EQ(reading.newOffset, TailOffset::byte(sizeOf(first) + 1));
    append(second.substr(cut) + "\n");
    EXPECT_EQ(reader.readSince(path, reading.newOffset).records, lines({second}));
}

TEST_F(ClaudeCodeReading, ConsumesEmptyLinesWithoutARecord) {
    write("\n\n" + first + "\n\n");
    const auto reading = readFrom(0);
    EXPECT_EQ(reading.records, lines({first}));
    EXPECT_EQ(reading.newOffset, TailOffset::byte(sizeOf(first) + 4));
}

TEST_F(ClaudeCodeReading, KeepsCarriageReturnsAndBytesAsTheyAre) {
    const std::string odd("a\0\xFF\r", 4);
    write(odd + "\n");
    EXPECT_EQ(readFrom(0).records, lines({odd}));
}

TEST_F(ClaudeCodeReading, ConsumesAMalformedLineThatParsesToNothing) {
    write("{\"type\":\n" + first + "\n");
    const auto reading = readFrom(0);
    ASSERT_EQ(reading.records.size(), 2U);
    EXPECT_FALSE(reader.parser().parse(reading.records[0]).has_value());
    EXPECT_TRUE(reader.parser().parse(reading.records[1]).has_value());
    expectNothing(path, reading.newOffset);
}

TEST_F(ClaudeCodeReading, YieldsNothingAtAnOffsetPastTheEnd) {
    write(first + "\n");
    expectNothing(path, TailOffset::byte(sizeOf(first) + 100));
    expectNothing(path, TailOffset::byte(INT64_MAX));
    expectNothing(path, TailOffset::messageIndex(sizeOf(first) + 1));
}

TEST_F(ClaudeCodeReading, YieldsNothingAtANegativeOffset) {
    write(first + "\n");
    expectNothing(path, TailOffset::byte(-1));
    expectNothing(path, TailOffset::byte(INT64_MIN));
}

TEST_F(ClaudeCodeReading, YieldsNothingOfAMissingFile) {
    EXPECT_EQ(reader.initialOffset(path), TailOffset::byte(0));
    expectNothing(path, TailOffset::byte(0));
    expectNothing(path, TailOffset::byte(7));
    expectNothing("", TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, YieldsNothingOfAPathUnderAFile) {
    write(first + "\n");
    EXPECT_EQ(reader.initialOffset(path + "/below"), TailOffset::byte(0));
    expectNothing(path + "/below", TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, YieldsNothingOfAnEmptyFile) {
    write("");
    EXPECT_EQ(reader.initialOffset(path), TailOffset::byte(0));
    expectNothing(path, TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, TakesADirectoryForNothing) {
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::byte(0));
    expectNothing(dir.path(), TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, DoesNotWaitForTheWriterOfAPipe) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(reader.initialOffset(path), TailOffset::byte(0));
    expectNothing(path, TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, DoesNotReadDevices) {
    EXPECT_EQ(reader.initialOffset("/dev/zero"), TailOffset::byte(0));
    expectNothing("/dev/zero", TailOffset::byte(0));
}

TEST_F(ClaudeCodeReading, FollowsASymbolicLink) {
    write(first + "\n");
    std::filesystem::create_symlink(path, dir / "link.jsonl");
    EXPECT_EQ(reader.initialOffset(dir / "link.jsonl"), TailOffset::byte(sizeOf(first) + 1));
    EXPECT_EQ(reader.readSince(dir / "link.jsonl", TailOffset::byte(0)).records, lines({first}));
}

TEST_F(ClaudeCodeReading, LeavesNoDescriptorOpen) {
    write(first + "\n");
    const auto openNow = [] {
        const std::filesystem::directory_iterator entries("/proc/self/fd");
        return std::distance(begin(entries), end(entries));
    };
    const auto before = openNow();
    for (int i = 0; i < 20; ++i) {
        readFrom(0);
        readFrom(1000);
        expectNothing(dir.path(), TailOffset::byte(0));
    }
    EXPECT_EQ(openNow(), before);
}

TEST_F(ClaudeCodeReading, ReadsOnlyWhatIsBehindTheCursor) {
    // A hole of a terabyte in front of the line: only its end can be read in any reasonable time or
    // memory.
    constexpr std::int64_t hole = 1LL << 40;
    write("");
    std::error_code unsupported;
    std::filesystem::resize_file(path, hole, unsupported);
    ASSERT_FALSE(unsupported) << unsupported.message();
    append(first + "\n");
    const auto reading = readFrom(hole);
    EXPECT_EQ(reading.records, lines({first}));
    EXPECT_EQ(reading.newOffset, TailOffset::byte(hole + sizeOf(first) + 1));
}

}  // namespace
}  // namespace sonra
