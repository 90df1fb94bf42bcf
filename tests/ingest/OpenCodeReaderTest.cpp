#include "ingest/OpenCodeReader.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "ingest/OpenCodeFiles.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

class OpenCodeReading : public testing::Test {
  protected:
    void write(const std::string& name, std::int64_t ms) {
        test::writeFileAt(dir / name, ms, R"({"role":"assistant","text":")" + name + "\"}");
    }
    /// What a read from `cursor` speaks; moves the cursor.
    std::vector<std::string> follow() {
        const auto reading = reader.readSince(dir.path(), cursor);
        cursor = cursor.advanced(reading.newOffset);
        std::vector<std::string> texts;
        for (const auto& record : reading.records)
            if (auto message = reader.parser().parse(record)) texts.push_back(message->text);
        return texts;
    }
    using Texts = std::vector<std::string>;

    test::TempDir dir;
    OpenCodeReader reader;
    TailOffset cursor = TailOffset::unixMs(0);
};

TEST_F(OpenCodeReading, YieldsFilesByTheirTimes) {
    write("c.json", 3000);
    write("a.json", 2000);
    write("b.json", 1000);
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(3000));
    EXPECT_EQ(follow(), (Texts{"b.json", "a.json", "c.json"}));
    EXPECT_EQ(cursor, TailOffset::unixMs(3000));
    EXPECT_EQ(follow(), Texts{});
    EXPECT_EQ(cursor, TailOffset::unixMs(3000));
    write("d.json", 5000);
    EXPECT_EQ(follow(), Texts{"d.json"});
    EXPECT_EQ(cursor, TailOffset::unixMs(5000));
    write("e.json", 1500);
    EXPECT_EQ(follow(), Texts{});
    EXPECT_EQ(cursor, TailOffset::unixMs(5000));
}

TEST_F(OpenCodeReading, TakesAFileOfTheSameTimeForSeen) {
    write("a.json", 1000);
    EXPECT_EQ(follow().size(), 1U);
    write("b.json", 1000);
    EXPECT_EQ(follow(), Texts{});
}

TEST_F(OpenCodeReading, CutsTimesToMilliseconds) {
    write("a.json", 1000);
    const std::array<timespec, 2> times{timespec{1, 999'999}, timespec{1, 999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "a.json").c_str(), times.data(), 0), 0);
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(1000));
    const std::array<timespec, 2> early{timespec{-2, 999'999'999}, timespec{-2, 999'999'999}};
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "a.json").c_str(), early.data(), 0), 0);
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(-1000));
}

TEST_F(OpenCodeReading, YieldsNothingOfAMissingDirectory) {
    const auto missing = dir / "missing";
    EXPECT_EQ(reader.initialOffset(missing), TailOffset::unixMs(0));
    const auto reading = reader.readSince(missing, TailOffset::unixMs(7));
    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.newOffset, TailOffset::unixMs(7));
    EXPECT_FALSE(OpenCodeReader::messageFiles(missing).has_value());
}

TEST_F(OpenCodeReading, YieldsNothingOfAnEmptyDirectory) {
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(0));
    EXPECT_EQ(follow(), Texts{});
}

TEST_F(OpenCodeReading, LooksOnlyAtFilesOfJson) {
    write("a.json", 1000);
    write("b.jsonl", 2000);
    write("c.JSON", 2000);
    std::filesystem::create_directory(dir / "d.json");
    std::filesystem::create_symlink("nowhere", dir / "e.json");
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(1000));
    EXPECT_EQ(follow(), Texts{"a.json"});
}

TEST_F(OpenCodeReading, SkipsWhatCannotBeReadButNotItsTime) {
    write("a.json", 1000);
    ASSERT_EQ(mkfifo((dir / "b.json").c_str(), 0600), 0);
    test::setModified(dir / "b.json", 2000);
    const auto reading = reader.readSince(dir.path(), cursor);
    EXPECT_EQ(reading.records.size(), 1U);
    EXPECT_EQ(reading.newOffset, TailOffset::unixMs(2000));
}

TEST_F(OpenCodeReading, SpeaksNothingOfAFileInTheMiddleOfARewrite) {
    test::writeFileAt(dir / "a.json", 1000, R"({"role":"assis)");
    EXPECT_EQ(follow(), Texts{});
    write("a.json", 1100);
    EXPECT_EQ(follow(), Texts{"a.json"});
}

TEST_F(OpenCodeReading, ReadsNamesThatAreNotUtf8) {
    write("\xFF\xFE.json", 1000);
    EXPECT_EQ(reader.readSince(dir.path(), cursor).records.size(), 1U);
    EXPECT_EQ(reader.initialOffset(dir.path()), TailOffset::unixMs(1000));
}

}  // namespace
}  // namespace sonra
