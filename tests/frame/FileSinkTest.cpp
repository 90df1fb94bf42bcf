#include "frame/FileSink.h"

#include "frame/Json.h"
#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using test::readFile;
using test::TempDir;

constexpr std::int64_t roomy = std::int64_t{1} << 30;

std::vector<std::string> linesOf(const std::string& content) {
    std::vector<std::string> lines;
    std::istringstream in(content);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool exists(const std::string& path) {
    return std::filesystem::exists(path);
}

TEST(FileSink, HasEveryLineInTheFileAfterAFlush) {
    const TempDir directory;
    FileSink sink(directory / "log", roomy, 3);
    sink.write("one");
    sink.write("two");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log"), "one\ntwo\n");
}

TEST(FileSink, AppendsToWhatAnEarlierRunWrote) {
    const TempDir directory;
    test::writeFile(directory / "log", "before\n");
    FileSink sink(directory / "log", roomy, 3);
    sink.write("after");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log"), "before\nafter\n");
}

TEST(FileSink, BeginsALineOfItsOwnBehindOneThatWasCutOff) {
    const TempDir directory;
    test::writeFile(directory / "log", "before\n{\"half");
    FileSink sink(directory / "log", roomy, 3);
    sink.write("after");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log"), "before\n{\"half\nafter\n");
}

TEST(FileSink, AfterARotationTheCurrentFileAndTheOneBeforeExist) {
    const TempDir directory;
    FileSink sink(directory / "log", 10, 3);
    sink.write("0123456789");
    sink.flush();
    EXPECT_FALSE(exists(directory / "log"));
    sink.write("next");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log.1"), "0123456789\n");
    EXPECT_EQ(readFile(directory / "log"), "next\n");
}

TEST(FileSink, RotatesExactlyWhenTheFileIsFull) {
    const TempDir directory;
    FileSink sink(directory / "log", 10, 3);
    sink.write("12345678");
    sink.flush();
    EXPECT_TRUE(exists(directory / "log"));
    EXPECT_FALSE(exists(directory / "log.1"));
    sink.write("");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log.1"), "12345678\n\n");
}

TEST(FileSink, KeepsThreeOldFilesAndNoFourth) {
    const TempDir directory;
    FileSink sink(directory / "log", 8, 3);
    for (int i = 0; i < 50; ++i) sink.write("line " + std::to_string(100 + i));
    sink.write("last");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log"), "last\n");
    EXPECT_EQ(readFile(directory / "log.1"), "line 149\n");
    EXPECT_EQ(readFile(directory / "log.2"), "line 148\n");
    EXPECT_EQ(readFile(directory / "log.3"), "line 147\n");
    EXPECT_FALSE(exists(directory / "log.4"));
}

TEST(FileSink, CountsWhatWasInTheFileAtOpening) {
    const TempDir directory;
    test::writeFile(directory / "log", "123456789\n");
    FileSink sink(directory / "log", 12, 1);
    sink.write("ab");
    sink.flush();
    EXPECT_EQ(readFile(directory / "log.1"), "123456789\nab\n");
}

TEST(FileSink, RotatesInTheMiddleOfABatch) {
    const TempDir directory;
    FileSink sink(directory / "log", 100, 9);
    for (int i = 0; i < 95; ++i) sink.write("a line " + std::to_string(10 + i % 10));
    sink.flush();
    for (int file = 1; file <= 9; ++file)
        EXPECT_EQ(linesOf(readFile(directory / ("log." + std::to_string(file)))).size(), 10U)
            << file;
    EXPECT_EQ(linesOf(readFile(directory / "log")).size(), 5U);
}

TEST(FileSink, KeepsTheLinesOfEachThreadInOrder) {
    constexpr int threads = 4;
    constexpr int each = 2000;
    const TempDir directory;
    FileSink sink(directory / "log", roomy, 1);
    std::vector<std::thread> writers;
    writers.reserve(threads);
    for (int t = 0; t < threads; ++t)
        writers.emplace_back([&sink, t] {
            for (int i = 0; i < each; ++i) sink.write(std::to_string(t) + " " + std::to_string(i));
        });
    for (auto& writer : writers) writer.join();
    sink.flush();
    int next[threads] = {};
    for (const auto& line : linesOf(readFile(directory / "log")))
        ASSERT_EQ(line.substr(2), std::to_string(next[line[0] - '0']++));
    for (const int count : next) EXPECT_EQ(count, each);
}

TEST(FileSink, MakesItsFileForTheUserAlone) {
    const TempDir directory;
    FileSink sink(directory / "log", roomy, 1);
    sink.write("x");
    sink.flush();
    struct stat status {};
    ASSERT_EQ(stat((directory / "log").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST(FileSink, SwallowsEveryFileFailure) {
    const TempDir directory;
    test::writeFile(directory / "file", "");
    FileSink below(directory / "file/log", roomy, 1);
    below.write("lost");
    below.flush();
    FileSink full("/dev/full", roomy, 1);
    full.write("lost");
    full.flush();
    EXPECT_EQ(readFile(directory / "file"), "");
}

TEST(FileSink, GoesOnWhenItsDirectoryComesBack) {
    const TempDir directory;
    FileSink sink(directory / "late/log", roomy, 1);
    sink.write("lost");
    sink.flush();
    std::filesystem::create_directory(directory / "late");
    sink.write("kept");
    sink.flush();
    EXPECT_EQ(readFile(directory / "late/log"), "kept\n");
}

TEST(FileSink, WritesWhatIsLeftWhenItIsDropped) {
    const TempDir directory;
    for (int i = 0; i < 20; ++i) FileSink(directory / "log", roomy, 1).write("line");
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (linesOf(readFile(directory / "log")).size() < 20 &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_EQ(linesOf(readFile(directory / "log")).size(), 20U);
}

TEST(FileSink, TheDefaultOneStandsBelowTheHome) {
    const test::TempHome home;
    const auto sink = FileSink::defaultMacSink();
    ASSERT_NE(sink, nullptr);
    sink->write("here");
    sink->flush();
    EXPECT_EQ(readFile(home / "Library/Logs/Sonra/sonra.ndjson"), "here\n");
}

/// The default log file, brought close to its end without writing all of it.
class DefaultLog {
  public:
    static constexpr std::uintmax_t limit = 10'485'760;

    std::string path(int old = 0) const {
        return home_ / "Library/Logs/Sonra/sonra.ndjson" +
               (old == 0 ? "" : "." + std::to_string(old));
    }
    /// Begins the file anew, with room for so many bytes more.
    void leaveRoom(std::uintmax_t room) const {
        test::writeFile(path(), "");
        std::filesystem::resize_file(path(), limit - room - 1);
        test::appendFile(path(), "\n");
    }
    FileSink& sink() { return *sink_; }

  private:
    const test::TempHome home_;
    const std::shared_ptr<FileSink> sink_ = FileSink::defaultMacSink();
};

/// A file's last ten characters, without the newline behind them.
std::string endOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    in.seekg(-11, std::ios::end);
    std::string line;
    std::getline(in, line);
    return line;
}

TEST(FileSink, TheDefaultOneRotatesAtTenMebibytes) {
    DefaultLog log;
    log.leaveRoom(10);
    log.sink().write("12345678");
    log.sink().flush();
    EXPECT_EQ(std::filesystem::file_size(log.path()), DefaultLog::limit - 1);
    EXPECT_FALSE(exists(log.path(1)));
    log.sink().write("");
    log.sink().flush();
    EXPECT_FALSE(exists(log.path()));
    EXPECT_EQ(std::filesystem::file_size(log.path(1)), DefaultLog::limit);
}

TEST(FileSink, TheDefaultOneKeepsFiveOldFilesAndNeverASixth) {
    DefaultLog log;
    for (int rotation = 1; rotation <= 8; ++rotation) {
        log.leaveRoom(2);
        log.sink().write("rotation " + std::to_string(rotation));
        log.sink().flush();
        for (int old = 1; old <= 5; ++old) {
            ASSERT_EQ(exists(log.path(old)), old <= rotation) << old << " after " << rotation;
            if (old > rotation) continue;
            EXPECT_EQ(endOf(log.path(old)), "rotation " + std::to_string(rotation - old + 1));
        }
        ASSERT_FALSE(exists(log.path(6))) << rotation;
    }
}

TEST(FileSink, ThereIsNoneWhereItsDirectoryCannotBeHad) {
    const TempDir directory;
    test::writeFile(directory / "file", "");
    const test::ScopedEnv home("HOME", directory / "file");
    EXPECT_EQ(FileSink::defaultMacSink(), nullptr);
}

/// A disk that doesn't move until somebody reads: a FIFO with its writer blocked.
class StuckDisk {
  public:
    explicit StuckDisk(const std::string& path) {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    }
    ~StuckDisk() { close(fd_); }

    /// Lets everything through until `end` has come.
    std::string readUntil(const std::string& end) const {
        std::string content;
        char buffer[65536];
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (content.find(end) == std::string::npos &&
               std::chrono::steady_clock::now() < deadline) {
            const auto got = read(fd_, buffer, sizeof buffer);
            if (got > 0) content.append(buffer, static_cast<std::size_t>(got));
        }
        return content;
    }

  private:
    int fd_;
};

TEST(FileSink, DropsLinesWhileTheDiskIsStuckAndTellsHowMany) {
    constexpr std::size_t sent = 20'000;
    const TempDir directory;
    const StuckDisk disk(directory / "log");
    FileSink sink(directory / "log", roomy, 1);
    for (std::size_t i = 0; i < sent; ++i) sink.write(std::string(1000, 'x'));
    const auto lines = linesOf(disk.readUntil("\"time\""));
    const auto record = json::parse(lines.back());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->at("msg"), "log lines dropped");
    EXPECT_EQ(record->at("level"), 40);
    EXPECT_EQ(record->at("service"), "sonra-mac");
    EXPECT_EQ(record->at("dropped"), sent - (lines.size() - 1));
    // What waited was bounded: at most two batches.
    EXPECT_LE((lines.size() - 1) * 1001, 2 * LineBatcher::maxPendingBytes);
}

}  // namespace
}  // namespace sonra
