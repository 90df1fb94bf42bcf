#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <thread>

#include "frame/AtomicFile.h"
#include "frame/Json.h"
#include "frame/StateLock.h"
#include "frame/UniqueFd.h"
#include "playback/NowPlayingSnapshotWriter.h"
#include "support/Asleep.h"
#include "support/ForkedProcess.h"
#include "support/TempDir.h"

extern char** environ;

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Writer = NowPlayingSnapshotWriter;

Writer::Playback playingAt(double elapsed) {
    return {Writer::State::playing, "m1", elapsed, 20, 0, 1};
}

/// A process that takes the document's lock, as any program that follows its rules may, and keeps
/// it.
class LockHolder {
  public:
    explicit LockHolder(const std::string& lockPath) {
        std::string script = "set -C; printf %s $$ > \"$0\"; exec sleep 60";
        std::string path = lockPath, shell = "sh", option = "-c";
        char* arguments[] = {shell.data(), option.data(), script.data(), path.data(), nullptr};
        if (posix_spawn(&pid_, "/bin/sh", nullptr, nullptr, arguments, environ) != 0) return;
        const auto limit = Clock::now() + 10s;
        while (AtomicFile::read(lockPath) != std::to_string(pid_) && Clock::now() < limit)
            std::this_thread::sleep_for(1ms);
    }
    ~LockHolder() { end(); }
    LockHolder(const LockHolder&) = delete;
    LockHolder& operator=(const LockHolder&) = delete;
    void end() {
        if (pid_ <= 0) return;
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
        pid_ = 0;
    }

  private:
    pid_t pid_ = 0;
};

/// Writes to the document by a writer of its own, long and short in turn. Between two writes it
/// leaves the lock to the others for longer than its own write took, on a machine of any speed:
/// who had to wait a second for it would write without.
void writeOften(const std::string& path, char mark, int times) {
    Writer writer(path);
    for (int i = 0; i < times; ++i) {
        const auto length = static_cast<std::size_t>(i % 2 == 0 ? 200'000 : 1);
        const auto start = Clock::now();
        writer.updateCursor({std::string(length, mark), Writer::Live{}, 0, 0, 0});
        std::this_thread::sleep_for(2ms + 3 * (Clock::now() - start));
    }
}

/// Counts the renames to a name in a directory.
class RenameCount {
  public:
    /// Watches both halves of a rename, since equal events in a row are merged.
    explicit RenameCount(const std::string& directory) : fd_(inotify_init1(IN_NONBLOCK)) {
        inotify_add_watch(fd_.get(), directory.c_str(), IN_MOVE);
    }
    int of(std::string_view name) {
        alignas(inotify_event) std::array<char, 65'536> events{};
        int count = 0;
        for (;;) {
            const auto got = ::read(fd_.get(), events.data(), events.size());
            if (got <= 0) return count;
            for (const char* at = events.data(); at < events.data() + got;) {
                const auto* event = reinterpret_cast<const inotify_event*>(at);
                if (event->len > 0 && event->name == name) ++count;
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

  private:
    UniqueFd fd_;
};

class NowPlayingSnapshotLockTest : public testing::Test {
  protected:
    Json document() const { return json::parseObject(test::readFile(path_)).value_or(Json()); }

    test::TempDir dir_;
    const std::string path_ = dir_ / "now-playing.json";
    Writer writer_{path_};
};

TEST_F(NowPlayingSnapshotLockTest, WaitsForALockThatAnotherThreadHolds) {
    ASSERT_TRUE(StateLock::tryAcquire(path_));
    const auto start = Clock::now();
    std::thread writing([this] { writer_.updatePlayback(playingAt(1)); });
    std::this_thread::sleep_for(150ms);
    const auto rev = writer_.rev();
    const bool isWritten = std::filesystem::exists(path_);
    // After a second, which a busy machine may have made of it, nothing holds the writer up.
    if (Clock::now() - start < 1s) {
        EXPECT_EQ(rev, 0);
        EXPECT_FALSE(isWritten);
    }
    StateLock::release(path_);
    writing.join();
    EXPECT_EQ(document()["rev"], 1);
    EXPECT_FALSE(std::filesystem::exists(StateLock::lockPath(path_)));
}

TEST_F(NowPlayingSnapshotLockTest, WritesUnlockedAfterASecondOfAnotherProcessHoldingIt) {
    const LockHolder other(StateLock::lockPath(path_));
    const auto start = Clock::now();
    writer_.updatePlayback(playingAt(1));
    const auto waited = Clock::now() - start;
    EXPECT_GE(waited, 1s);
    EXPECT_LT(waited, 3s);
    EXPECT_EQ(document()["rev"], 1);
    EXPECT_TRUE(std::filesystem::exists(StateLock::lockPath(path_)));  // still the other's
}

TEST_F(NowPlayingSnapshotLockTest, TakesOverFromAProcessThatWasKilledHoldingIt) {
    LockHolder other(StateLock::lockPath(path_));
    other.end();
    // Not the second that a lock in use is waited for.
    EXPECT_LT(test::Asleep::during([&] { writer_.updatePlayback(playingAt(1)); }), 800ms);
    EXPECT_EQ(document()["rev"], 1);
    EXPECT_FALSE(std::filesystem::exists(StateLock::lockPath(path_)));
}

TEST_F(NowPlayingSnapshotLockTest, ConcurrentUpdatesRaiseRevByExactlyTheirNumber) {
    constexpr int threads = 8;
    constexpr int updates = 5;
    std::vector<std::thread> writing;
    writing.reserve(threads);
    for (int t = 0; t < threads; ++t)
        writing.emplace_back([this] {
            for (int i = 0; i < updates; ++i) writer_.updateCursor({"s", Writer::Live{}, 0, 0, 0});
        });
    for (auto& thread : writing) thread.join();
    EXPECT_EQ(writer_.rev(), threads * updates);
    EXPECT_EQ(document()["rev"], threads * updates);
}

TEST_F(NowPlayingSnapshotLockTest, ReadersNeverSeeATornDocument) {
    writer_.updateCursor({std::string(1, 'a'), Writer::Live{}, 0, 0, 0});
    std::atomic<bool> done = false;
    std::atomic<int> torn = 0;
    std::atomic<int> seen = 0;
    std::thread reading([&] {
        while (!done) {
            const auto read = json::parseObject(AtomicFile::read(path_).value_or(""));
            if (!read || read->size() != 12) ++torn;
            ++seen;
        }
    });
    // A busy machine may let the reader begin only when the writer has been at it for long.
    const auto deadline = Clock::now() + 20s;
    for (std::size_t i = 0; i < 300 || (seen <= 10 && Clock::now() < deadline); ++i)
        writer_.updateCursor({std::string(i % 2 == 0 ? 20'000 : 1, 'a'), Writer::Live{}, 0, 0, 0});
    done = true;
    reading.join();
    EXPECT_EQ(torn, 0);
    EXPECT_GT(seen, 10);
}

// Writers share the temporary file beside the document. Without the lock one would empty it while
// another renames it, or rename it away from under another.
TEST_F(NowPlayingSnapshotLockTest, WritersInThreadsAndProcessesDontSpoilEachOthersWrites) {
    constexpr int times = 60;
    writer_.updateCursor({"s", Writer::Live{}, 0, 0, 0});
    RenameCount renames(dir_.path());
    test::ForkedProcess process([&] { writeOften(path_, 'a', times); });
    std::atomic<int> writing = 2;
    const auto write = [&](char mark) {
        writeOften(path_, mark, times);
        --writing;
    };
    std::thread one(write, 'b'), two(write, 'c');
    int seen = 0, torn = 0;
    for (; writing > 0; ++seen) {
        const auto read = json::parseObject(AtomicFile::read(path_).value_or(""));
        if (!read || read->size() != 12) ++torn;
    }
    one.join();
    two.join();
    EXPECT_TRUE(process.finished());
    EXPECT_EQ(torn, 0);
    EXPECT_GT(seen, 10);
    EXPECT_EQ(renames.of("now-playing.json"), 3 * times);
    EXPECT_EQ(document()["rev"], times);
}

}  // namespace
}  // namespace sonra
