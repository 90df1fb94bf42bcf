#include "frame/ServiceLock.h"

#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"
#include "support/TempDir.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>

namespace sonra {
namespace {

using test::readFile;
using test::TempDir;
using test::TempHome;

/// Runs `work` in a child process; its status is what `work` returns.
pid_t inChild(const std::function<int()>& work) {
    const pid_t pid = fork();
    if (pid == 0) _exit(work());
    return pid;
}

int statusOf(pid_t pid) {
    int status = 0;
    if (waitpid(pid, &status, 0) != pid) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Tries until `limit` has passed.
bool acquiresWithin(const std::string& path, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    testing::internal::CaptureStderr();
    bool acquired = acquireServiceLock(path);
    while (!acquired && std::chrono::steady_clock::now() < deadline) {
        usleep(5'000);
        acquired = acquireServiceLock(path);
    }
    testing::internal::GetCapturedStderr();
    return acquired;
}

TEST(ServiceLock, FirstAcquisitionStampsThePidAndASecondIsRefused) {
    const TempDir directory;
    ASSERT_TRUE(acquireServiceLock(directory / "lock"));
    EXPECT_EQ(std::to_string(getpid()) + "\n", readFile(directory / "lock"));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(acquireServiceLock(directory / "lock"));
    EXPECT_EQ("tts: another Sonra service is already running; exiting duplicate service.\n",
              testing::internal::GetCapturedStderr());
    EXPECT_EQ(std::to_string(getpid()) + "\n", readFile(directory / "lock"));
}

TEST(ServiceLock, ReplacesALongerStamp) {
    const TempDir directory;
    test::writeFile(directory / "lock", "12345678901234567890\n");
    ASSERT_TRUE(acquireServiceLock(directory / "lock"));
    EXPECT_EQ(std::to_string(getpid()) + "\n", readFile(directory / "lock"));
}

TEST(ServiceLock, APathInAMissingDirectoryIsRefused) {
    const TempDir directory;
    const std::string path = directory / "missing/lock";
    testing::internal::CaptureStderr();
    EXPECT_FALSE(acquireServiceLock(path));
    EXPECT_EQ("tts: could not open " + path + ": No such file or directory\n",
              testing::internal::GetCapturedStderr());
}

TEST(ServiceLock, TheDefaultPathIsInTheHomeAndItsDirectoryIsMade) {
    const TempHome home;
    std::filesystem::remove_all(home / ".claude");
    ASSERT_TRUE(acquireServiceLock());
    EXPECT_EQ(std::to_string(getpid()) + "\n", readFile(home.shared() + "/sonra.lock"));
}

TEST(ServiceLock, ADeadHolderLeavesNoLock) {
    const TempDir directory;
    const std::string path = directory / "lock";
    EXPECT_EQ(0, statusOf(inChild([&] { return acquireServiceLock(path) ? 0 : 1; })));
    EXPECT_TRUE(acquireServiceLock(path));
}

TEST(ServiceLock, AProgramThatTheHolderStartedDoesNotKeepIt) {
    const TempDir directory;
    const std::string path = directory / "lock";
    std::array<int, 2> out{};
    ASSERT_EQ(0, pipe2(out.data(), O_CLOEXEC));
    const pid_t holder = inChild([&] {
        if (!acquireServiceLock(path)) return 1;
        pid_t sleeper = 0;
        char* const arguments[] = {const_cast<char*>("sleep"), const_cast<char*>("60"), nullptr};
        if (posix_spawnp(&sleeper, "sleep", nullptr, nullptr, arguments, environ) != 0) return 2;
        return write(out[1], &sleeper, sizeof sleeper) == sizeof sleeper ? 0 : 3;
    });
    EXPECT_EQ(0, statusOf(holder));
    pid_t sleeper = 0;
    ASSERT_EQ(static_cast<ssize_t>(sizeof sleeper), read(out[0], &sleeper, sizeof sleeper));
    EXPECT_EQ(0, kill(sleeper, 0));
    // The kernel wakes whoever started a program a moment before it closes the inherited
    // descriptors.
    EXPECT_TRUE(acquiresWithin(path, std::chrono::seconds(10)));
    EXPECT_EQ(0, kill(sleeper, 0));
    kill(sleeper, SIGTERM);
    close(out[0]);
    close(out[1]);
}

/// Starts as a service does; reports by one byte whether it won, and a winner stays until its
/// `stay` closes.
int startService(const TempDir& directory, int report, int stay) {
    if (!acquireServiceLock(directory / "lock")) return write(report, "-", 1) == 1 ? 0 : 1;
    const UniqueFd server(bindUnixSocket(directory / "s"));
    if (!server || write(report, "+", 1) != 1) return 2;
    char ignored = 0;
    return read(stay, &ignored, 1) == 0 ? 0 : 3;
}

TEST(ServiceLock, OfFourStartsAtOnceOneWinsAndItsSocketStands) {
    const TempDir directory;
    std::array<int, 2> report{};
    std::array<int, 2> stay{};
    ASSERT_EQ(0, pipe2(report.data(), O_CLOEXEC));
    ASSERT_EQ(0, pipe2(stay.data(), O_CLOEXEC));
    std::array<pid_t, 4> starts{};
    for (auto& pid : starts)
        pid = inChild([&] {
            close(stay[1]);
            return startService(directory, report[1], stay[0]);
        });
    std::string reports;
    for (char c = 0; reports.size() < starts.size() && read(report[0], &c, 1) == 1;) reports += c;
    EXPECT_EQ(1, std::count(reports.begin(), reports.end(), '+'));
    EXPECT_EQ(3, std::count(reports.begin(), reports.end(), '-'));
    EXPECT_TRUE(UniqueFd(connectUnixSocket(directory / "s")));
    for (const int fd : {report[0], report[1], stay[0], stay[1]}) close(fd);
    for (const pid_t pid : starts) EXPECT_EQ(0, statusOf(pid));
}

TEST(ServiceLock, IsFreeOnceItWasReleasedThoughACopyOfTheDescriptorIsOpen) {
    const test::TempDir directory;
    const auto path = directory / "sonra.lock";
    ASSERT_TRUE(acquireServiceLock(path));
    const int copy = [&] {
        for (int fd = 3; fd < 1024; ++fd) {
            std::error_code none;
            const auto target =
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), none);
            if (!none && target == path) return dup(fd);
        }
        return -1;
    }();
    ASSERT_GE(copy, 0);
    releaseServiceLock();
    EXPECT_TRUE(acquireServiceLock(path));
    releaseServiceLock();
    close(copy);
}

}  // namespace
}  // namespace sonra
