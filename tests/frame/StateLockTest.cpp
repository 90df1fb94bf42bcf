#include "frame/StateLock.h"

#include "frame/AtomicFile.h"
#include "frame/ChildProcess.h"
#include "frame/Json.h"
#include "frame/UniqueFd.h"
#include "support/ForkedProcess.h"
#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using namespace std::chrono_literals;
using test::ForkedProcess;
using test::TempDir;

class StateLockTest : public testing::Test {
  protected:
    bool isLocked() const {
        return std::filesystem::exists(std::filesystem::symlink_status(lock_));
    }
    /// Leaves a lock file as another party would have.
    void leaveLock(std::string_view content, std::chrono::seconds age) const {
        test::writeFile(lock_, content);
        const auto modified = std::chrono::system_clock::now() - age;
        const timespec when{std::chrono::system_clock::to_time_t(modified), 0};
        const timespec both[2] = {when, when};
        ASSERT_EQ(utimensat(AT_FDCWD, lock_.c_str(), both, 0), 0);
    }
    int count() const {
        return json::parseObject(test::readFile(path_))
            .value_or(Json{{"count", -1}})
            .value("count", -1);
    }

    TempDir directory_;
    std::string path_ = directory_ / "state.json";
    std::string lock_ = path_ + ".lock";
};

/// The id of no process, beyond all that the kernel gives: one that has been in use may be given
/// again while a test runs.
constexpr pid_t deadPid = std::numeric_limits<pid_t>::max();

/// Looks at a lock file: who finds it there opens it to see whose it is.
class Looks {
  public:
    explicit Looks(const std::string& lock) {
        EXPECT_GE(inotify_add_watch(events_.get(), lock.c_str(), IN_OPEN), 0);
    }
    /// Waits for another one.
    bool next() const {
        pollfd ready{events_.get(), POLLIN, 0};
        char event[256];
        return poll(&ready, 1, 20'000) == 1 && read(events_.get(), event, sizeof event) > 0;
    }

  private:
    UniqueFd events_{inotify_init1(IN_CLOEXEC)};
};

void incrementUnderLock(const std::string& path) {
    auto document = json::parseObject(AtomicFile::read(path).value()).value();
    document["count"] = document["count"].get<int>() + 1;
    AtomicFile::write(path, json::dumpPretty(document));
}

void increment(const std::string& path) {
    StateLock::withLock(path, 60s, [&] { incrementUnderLock(path); });
}

TEST(StateLock, TheLockForADocumentStandsBesideIt) {
    EXPECT_EQ(StateLock::lockPath("x/state.json"), "x/state.json.lock");
}

TEST(StateLock, HasTheConstantsThatAllPartiesShare) {
    EXPECT_EQ(StateLock::staleAfter, 30s);
    EXPECT_EQ(StateLock::retryInterval, 25ms);
    EXPECT_EQ(StateLock::defaultTimeout, 10s);
}

TEST_F(StateLockTest, FirstAcquireCreatesTheFileAndBlocksTheSecondUntilRelease) {
    EXPECT_TRUE(StateLock::tryAcquire(path_));
    EXPECT_EQ(test::readFile(lock_), std::to_string(getpid()));
    struct stat status {};
    ASSERT_EQ(stat(lock_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
    StateLock::release(path_);
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, ReclaimsALockWhoseHolderIsDeadHoweverYoung) {
    leaveLock(std::to_string(deadPid), 0s);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_FALSE(isLocked());
    EXPECT_TRUE(StateLock::tryAcquire(path_));
}

TEST_F(StateLockTest, ALiveHoldersLockIsReclaimedOnlyWhenOlderThanThirtySeconds) {
    leaveLock(std::to_string(getppid()), 25s);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
    leaveLock(std::to_string(getppid()), 31s);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, ALockThatNamesNobodyHoldsUntilItIsOld) {
    for (const auto* content : {"", "0", "-5", "garbage", "12 34", "99999999999", "\xff", "1.0"}) {
        leaveLock(content, 1s);
        EXPECT_FALSE(StateLock::tryAcquire(path_));
        EXPECT_TRUE(isLocked()) << content;
        leaveLock(content, 31s);
        EXPECT_FALSE(StateLock::tryAcquire(path_));
        EXPECT_FALSE(isLocked()) << content;
    }
}

TEST_F(StateLockTest, ALockFromTheFutureHolds) {
    leaveLock("", -3600s);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
}

TEST(StateLock, ReadsTheHolderAsAnyPartyMayHaveWrittenIt) {
    const std::pair<std::string_view, std::int32_t> rows[] = {{"123", 123},
                                                              {" 123\n", 123},
                                                              {"\u00a0\t123\u2028", 123},
                                                              {"+7", 7},
                                                              {"-7", -7},
                                                              {"007", 7},
                                                              {"2147483647", 2147483647},
                                                              {"2147483648", 0},
                                                              {"-2147483648", INT32_MIN},
                                                              {"+-7", 0},
                                                              {"-+7", 0},
                                                              {"+", 0},
                                                              {"", 0},
                                                              {"12a", 0},
                                                              {"1 2", 0},
                                                              {"0x10", 0},
                                                              {"1e3", 0},
                                                              {"\xff"
                                                               "123",
                                                               0},
                                                              {"\u0661", 0},
                                                              {std::string_view("12\0", 3), 0}};
    for (const auto& [content, pid] : rows) EXPECT_EQ(StateLock::holderOf(content), pid) << content;
}

TEST(StateLock, JudgesTheAgeAtThirtySeconds) {
    const auto self = std::to_string(getpid());
    EXPECT_FALSE(StateLock::isStale(self, 30'000ms));
    EXPECT_TRUE(StateLock::isStale(self, 30'001ms));
    EXPECT_FALSE(StateLock::isStale("", 30'000ms));
    EXPECT_TRUE(StateLock::isStale("", 30'001ms));
    EXPECT_TRUE(StateLock::isStale(std::to_string(deadPid), 0ms));
    EXPECT_FALSE(StateLock::isStale("1", 0ms));
}

TEST_F(StateLockTest, AnOverlongLockFileNamesNobody) {
    leaveLock(std::string(1 << 20, ' ') + std::to_string(deadPid), 0s);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
}

TEST_F(StateLockTest, ADirectoryInTheLocksPlaceHoldsAndHarmsNobody) {
    std::filesystem::create_directory(lock_);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
}

TEST_F(StateLockTest, AFifoInTheLocksPlaceDoesNotHangTheAttempt) {
    ASSERT_EQ(mkfifo(lock_.c_str(), 0600), 0);
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
}

TEST_F(StateLockTest, FailsWhereTheDirectoryIsMissing) {
    EXPECT_FALSE(StateLock::tryAcquire(directory_ / "missing/state.json"));
    EXPECT_THROW(StateLock::acquireBlocking(directory_ / "missing/state.json", 0ms),
                 StateLockError);
}

TEST_F(StateLockTest, TimesOutWithTheErrorAndNoEarlier) {
    ASSERT_TRUE(StateLock::tryAcquire(path_));
    const auto start = std::chrono::steady_clock::now();
    try {
        StateLock::acquireBlocking(path_, 120ms);
        ADD_FAILURE() << "acquired a held lock";
    } catch (const StateLockError& error) {
        EXPECT_EQ(error.lockPath(), lock_);
        EXPECT_EQ(std::string(error.what()), "state-lock: lock timeout (" + lock_ + ")");
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, 120ms);
}

TEST_F(StateLockTest, ATimeoutOfZeroStillAttemptsOnce) {
    StateLock::acquireBlocking(path_, 0ms);
    EXPECT_TRUE(isLocked());
    EXPECT_THROW(StateLock::acquireBlocking(path_, 0ms), StateLockError);
}

TEST_F(StateLockTest, WaitsUntilTheHolderReleases) {
    const std::string mark = directory_ / "mark";
    const std::string seen = directory_ / "seen";
    ASSERT_TRUE(StateLock::tryAcquire(path_));
    const Looks looks(lock_);
    ForkedProcess waiter([&] {
        StateLock::acquireBlocking(path_, 60s);
        test::writeFile(seen, test::readFile(mark));
    });
    // It has been refused again and again, and still waits.
    for (int refused = 0; refused < 3; ++refused) ASSERT_TRUE(looks.next());
    EXPECT_FALSE(std::filesystem::exists(seen));
    EXPECT_EQ(test::readFile(lock_), std::to_string(getpid()));
    test::writeFile(mark, "let go");
    StateLock::release(path_);
    EXPECT_TRUE(waiter.finished());
    EXPECT_EQ(test::readFile(seen), "let go");
    EXPECT_EQ(test::readFile(lock_), std::to_string(waiter.pid()));
}

TEST_F(StateLockTest, WithLockReturnsWhatItsBodyReturns) {
    const int result = StateLock::withLock(path_, [&] {
        EXPECT_TRUE(isLocked());
        return 7;
    });
    EXPECT_EQ(result, 7);
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, AFailingBodyReleasesTheLockAndReachesTheCaller) {
    const auto failing = [] { throw std::runtime_error("body"); };
    EXPECT_THROW(StateLock::withLock(path_, failing), std::runtime_error);
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, IsNotReentrant) {
    StateLock::withLock(
        path_, [&] { EXPECT_THROW(StateLock::withLock(path_, 30ms, [] {}), StateLockError); });
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, LocksOfDifferentDocumentsAreIndependent) {
    ASSERT_TRUE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(StateLock::tryAcquire(directory_ / "now-playing.json"));
}

TEST_F(StateLockTest, ThreadsLoseNoIncrement) {
    test::writeFile(path_, R"({"count":0})");
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([this] {
            for (int i = 0; i < 25; ++i) increment(path_);
        });
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(count(), 8 * 25);
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, ReclaimersInCompetitionNeverRemoveAFreshLock) {
    const auto dead = std::to_string(deadPid);
    std::atomic<int> inside = 0;
    std::atomic<int> turns = 0;
    std::atomic<int> intrusions = 0;
    const auto compete = [&] {
        while (turns < 1000) {
            if (!StateLock::tryAcquire(path_)) continue;
            if (++inside != 1) ++intrusions;
            ++turns;
            std::this_thread::yield();
            --inside;
            // As one does who dies here: every turn begins with the reclaim of the last one's lock.
            test::writeFile(lock_, dead);
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) threads.emplace_back(compete);
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(intrusions, 0);
}

TEST_F(StateLockTest, AHolderThatIsKilledGivesTheLockUpAtOnce) {
    ForkedProcess holder([&] {
        StateLock::acquireBlocking(path_, 0ms);
        for (;;) pause();
    });
    while (test::readFile(lock_) != std::to_string(holder.pid())) std::this_thread::yield();
    EXPECT_FALSE(StateLock::tryAcquire(path_));
    EXPECT_TRUE(isLocked());
    holder.killNow();
    StateLock::acquireBlocking(path_, 10s);
    EXPECT_EQ(test::readFile(lock_), std::to_string(getpid()));
}

TEST_F(StateLockTest, ALockFileNeverStandsWithoutItsHolder) {
    test::writeFile(path_, R"({"count":0})");
    ForkedProcess holder([this] {
        for (;;) StateLock::withLock(path_, 60s, [] {});
    });
    int seen = 0;
    for (int i = 0; i < 2'000'000 && seen < 2000; ++i) {
        if (const auto content = AtomicFile::read(lock_)) {
            ASSERT_EQ(*content, std::to_string(holder.pid()));
            ++seen;
        }
    }
    EXPECT_EQ(seen, 2000);
}

TEST_F(StateLockTest, LocksInTheWorkingDirectoryToo) {
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(directory_.path());
    EXPECT_TRUE(StateLock::tryAcquire("state.json"));
    EXPECT_FALSE(StateLock::tryAcquire("state.json"));
    EXPECT_TRUE(isLocked());
    std::filesystem::current_path(before);
}

/// Ends with status 0 if locking works in a process that can't name its descriptors, as where /proc
/// is missing.
[[noreturn]] void lockWithoutProc(const std::string& path) {
    const bool isHidden =
        unshare(geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
        mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
        mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
    if (!isHidden) std::perror("can't hide /proc");
    const bool isLocked = StateLock::tryAcquire(path) && !StateLock::tryAcquire(path);
    const bool isNamed = AtomicFile::read(path + ".lock") == std::to_string(getpid());
    StateLock::release(path);
    ::_exit(isHidden && isLocked && isNamed && StateLock::tryAcquire(path) ? 0 : 1);
}

TEST(StateLockDeathTest, LocksWhereNoUnnamedFileCanBeHad) {
    const TempDir directory;
    // Started anew, because a process must have one thread to leave its user namespace.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(lockWithoutProc(directory / "state.json"), testing::ExitedWithCode(0), "");
}

/// The absolute path of a program on PATH; empty if there is none.
std::string onPath(const std::string& name) {
    const char* search = std::getenv("PATH");
    std::istringstream directories(search == nullptr ? "" : search);
    for (std::string directory; std::getline(directories, directory, ':');)
        if (auto path = (std::filesystem::path(directory) / name).string();
            access(path.c_str(), X_OK) == 0)
            return path;
    return {};
}

/// Parties of several kinds that increment one document, all begun at the same moment. Node.js ones
/// take fewer turns, so that they end, and give up what they hold, amid the turns of the others.
class Crowd {
  public:
    Crowd(std::string path, int times) : path_(std::move(path)), times_(times) {}

    /// From now on everybody goes as one who dies there: the lock stays, in the name of this
    /// process that is gone, and each turn begins with its reclaim by whoever is first.
    void leaveLocksOf(pid_t dead) { dead_ = std::to_string(dead); }

    void addNode(const std::string& node) {
        auto [process, error] =
            ChildProcess::spawn({.executable = node,
                                 .arguments = {SONRA_SOURCE_DIR "/tests/frame/state_lock_peer.mjs",
                                               path_, std::to_string(turnsOfNode()), dead_},
                                 .environment = {{"PATH", "/usr/bin:/bin"}}});
        ASSERT_NE(process, nullptr) << error;
        nodes_.push_back(std::move(process));
    }
    void addProcess() {
        processes_.push_back(std::make_unique<ForkedProcess>([this] {
            test::writeFile(path_ + ".ready." + std::to_string(getpid()), "");
            takePart();
        }));
    }
    void addThread() {
        threads_.emplace_back([this] { takePart(); });
    }

    /// The number of increments that should be there in the end.
    int run() {
        while (ready() < nodes_.size() + processes_.size()) std::this_thread::sleep_for(1ms);
        test::writeFile(path_ + ".go", "");
        for (auto& thread : threads_) thread.join();
        for (auto& process : processes_) EXPECT_TRUE(process->finished());
        for (auto& node : nodes_) EXPECT_EQ(node->waitForExit(60s), 0);
        return static_cast<int>(processes_.size() + threads_.size()) * times_ +
               static_cast<int>(nodes_.size()) * turnsOfNode();
    }

  private:
    int turnsOfNode() const { return times_ / 5; }
    void takePart() const {
        while (!std::filesystem::exists(path_ + ".go")) std::this_thread::sleep_for(1ms);
        for (int i = 0; i < times_; ++i) takeTurn();
    }
    void takeTurn() const {
        if (dead_.empty()) {
            increment(path_);
            std::this_thread::sleep_for(1ms);
            return;
        }
        // Without a rest between attempts, so that reclaimers meet as often as they can.
        while (!StateLock::tryAcquire(path_)) std::this_thread::yield();
        incrementUnderLock(path_);
        test::writeFile(StateLock::lockPath(path_), dead_);
    }
    std::size_t ready() const {
        std::size_t count = 0;
        const auto directory = std::filesystem::path(path_).parent_path();
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            if (entry.path().string().find(".ready.") != std::string::npos) ++count;
        // One that died before it was ready would never be.
        for (const auto& node : nodes_) EXPECT_TRUE(node->isRunning());
        return testing::Test::HasFailure() ? SIZE_MAX : count;
    }

    const std::string path_;
    const int times_;
    std::string dead_;
    std::vector<std::unique_ptr<ChildProcess>> nodes_;
    std::vector<std::unique_ptr<ForkedProcess>> processes_;
    std::vector<std::thread> threads_;
};

TEST_F(StateLockTest, ProcessesAndNodePeersLoseNoIncrement) {
    const std::string node = onPath("node");
    ASSERT_FALSE(node.empty()) << "this test needs Node.js on PATH";
    test::writeFile(path_, R"({"count":0,"daemonKey":{"kept":[1,2.5,"x"]}})");
    Crowd crowd(path_, 30);
    crowd.addNode(node);
    crowd.addNode(node);
    crowd.addProcess();
    crowd.addProcess();
    crowd.addThread();
    crowd.addThread();
    const int expected = crowd.run();
    EXPECT_EQ(count(), expected);
    const auto document = json::parseObject(test::readFile(path_)).value();
    EXPECT_EQ(document["daemonKey"], Json::parse(R"({"kept":[1,2.5,"x"]})"));
    EXPECT_FALSE(isLocked());
}

TEST_F(StateLockTest, ProcessesAndNodePeersThatReclaimInCompetitionLoseNoIncrement) {
    const std::string node = onPath("node");
    ASSERT_FALSE(node.empty()) << "this test needs Node.js on PATH";
    test::writeFile(path_, R"({"count":0})");
    Crowd crowd(path_, 100);
    crowd.leaveLocksOf(deadPid);
    crowd.addNode(node);
    crowd.addNode(node);
    crowd.addProcess();
    crowd.addProcess();
    const int expected = crowd.run();
    EXPECT_EQ(count(), expected);
}

TEST_F(StateLockTest, HoldersThatDieAmongManyLoseNoFinishedIncrement) {
    test::writeFile(path_, R"({"count":0})");
    std::vector<std::unique_ptr<ForkedProcess>> writers;
    writers.reserve(3);
    for (int p = 0; p < 3; ++p)
        writers.push_back(std::make_unique<ForkedProcess>([this] {
            for (int i = 0; i < 20; ++i, std::this_thread::sleep_for(1ms)) increment(path_);
        }));
    for (int i = 0; i < 10; ++i) {
        // Ends with the lock in its hands and nothing written.
        ForkedProcess victim([this] { StateLock::acquireBlocking(path_, 60s); });
        EXPECT_TRUE(victim.finished());
    }
    for (auto& writer : writers) EXPECT_TRUE(writer->finished());
    EXPECT_EQ(count(), 60);
}

}  // namespace
}  // namespace sonra
