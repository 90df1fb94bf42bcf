#include "frame/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <sstream>
#include <thread>

#include "support/ComesTrue.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Stream = ChildProcess::Stream;
using ErrorStream = ChildProcess::ErrorStream;

ChildProcess::Request shell(const std::string& script) {
    return {.executable = "/bin/sh",
            .arguments = {"-c", script},
            .environment = {{"PATH", "/usr/bin:/bin"}},
            .output = Stream::pipe,
            .error = ErrorStream::likeOutput};
}

std::unique_ptr<ChildProcess> start(const ChildProcess::Request& request) {
    auto [process, error] = ChildProcess::spawn(request);
    EXPECT_NE(process, nullptr) << error;
    return std::move(process);
}

/// Whether the kernel still knows the process, as a zombie or alive.
bool exists(pid_t pid) {
    return ::kill(pid, 0) == 0;
}

/// What `watch` reported; shared with its thread, which may outlive a test.
struct Watched {
    std::mutex mutex;
    std::string bytes;
    std::optional<int> status;

    static std::shared_ptr<Watched> of(ChildProcess& process) {
        auto watched = std::make_shared<Watched>();
        process.watch(
            [watched](std::string_view more) {
                const std::lock_guard lock(watched->mutex);
                watched->bytes += more;
            },
            [watched](int code) {
                const std::lock_guard lock(watched->mutex);
                watched->status = code;
            });
        return watched;
    }
    std::string seen() {
        const std::lock_guard lock(mutex);
        return bytes;
    }
    bool hasLine() {
        return test::comesTrue([this] { return seen().find('\n') != std::string::npos; });
    }
    std::optional<int> exitStatus() {
        test::comesTrue([this] {
            const std::lock_guard lock(mutex);
            return status.has_value();
        });
        const std::lock_guard lock(mutex);
        return status;
    }
    pid_t printedPid() { return hasLine() ? static_cast<pid_t>(std::atol(seen().c_str())) : -1; }
};

TEST(ChildProcess, DeliversOutputAndExitCode) {
    const auto process = start(shell("echo out; echo err >&2; exit 3"));
    const auto output = process->readToEnd(20s);
    EXPECT_TRUE(output.atEnd);
    EXPECT_EQ(output.bytes, "out\nerr\n");
    EXPECT_EQ(process->waitForExit(20s), 3);
    EXPECT_EQ(process->waitForExit(0s), 3);
}

TEST(ChildProcess, ReportsAProgramThatCannotBeStarted) {
    auto request = shell("");
    request.executable = "/nonexistent/program";
    const auto [process, error] = ChildProcess::spawn(request);
    EXPECT_EQ(process, nullptr);
    EXPECT_EQ(error, "No such file or directory");
}

TEST(ChildProcess, ReportsASignalAsStatus) {
    const auto process = start(shell("kill -9 $$"));
    EXPECT_EQ(process->waitForExit(20s), 128 + SIGKILL);
}

TEST(ChildProcess, GivesExactlyTheGivenEnvironment) {
    auto request = shell("env -u PWD -u SHLVL -u _");
    request.environment["SONRA_X"] = "a b=c";
    EXPECT_EQ(start(request)->readToEnd(20s).bytes, "PATH=/usr/bin:/bin\nSONRA_X=a b=c\n");
}

TEST(ChildProcess, WritesInputAndClosesIt) {
    auto request = shell("cat");
    request.input = Stream::pipe;
    const auto process = start(request);
    EXPECT_EQ(process->writeStdin("line\n", 20s), std::nullopt);
    process->closeStdin();
    EXPECT_EQ(process->readToEnd(20s).bytes, "line\n");
    EXPECT_EQ(process->waitForExit(20s), 0);
}

TEST(ChildProcess, GivesUpWritingToAChildThatDoesNotRead) {
    auto request = shell("exec sleep 60");
    request.input = Stream::pipe;
    const auto process = start(request);
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(process->writeStdin(std::string(1U << 20U, 'x'), 50ms), "Connection timed out");
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    process->kill();
}

TEST(ChildProcess, SurvivesWritingToADeadChild) {
    const auto before = signal(SIGPIPE, SIG_DFL);
    auto request = shell("exit 0");
    request.input = Stream::pipe;
    const auto process = start(request);
    process->waitForExit(20s);
    EXPECT_EQ(process->writeStdin("x", 1s), "Broken pipe");
    signal(SIGPIPE, before);
}

TEST(ChildProcess, StartsChildrenWithDefaultSignals) {
    const auto before = signal(SIGUSR1, SIG_IGN);
    sigset_t blocked;
    sigset_t oldMask;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &oldMask);
    const auto status =
        start(shell("grep -E '^Sig(Blk|Ign)' /proc/self/status | cut -f2"))->readToEnd(20s).bytes;
    pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
    signal(SIGUSR1, before);
    std::istringstream fields(status);
    unsigned long long blockedSet = 1;
    unsigned long long ignoredSet = 1;
    ASSERT_TRUE(fields >> std::hex >> blockedSet >> ignoredSet) << status;
    EXPECT_EQ(blockedSet, 0U);
    // Signals 32 and 33 are the C library's own, and stay as this process got them.
    EXPECT_EQ(ignoredSet & ~0x180000000ULL, 0U);
}

TEST(ChildProcess, LeaksNoDescriptorIntoTheChild) {
    // One without close-on-exec, as a library may leave it.
    const int leaky = open("/dev/null", O_RDONLY);
    auto request = shell("exec ls /proc/self/fd");
    request.input = Stream::pipe;
    const auto listed = start(request)->readToEnd(20s).bytes;
    close(leaky);
    // 3 is the directory that ls itself reads.
    EXPECT_EQ(listed, "0\n1\n2\n3\n");
}

TEST(ChildProcess, KeepsItsOwnDescriptorsCloseOnExec) {
    auto request = shell("exec sleep 60");
    request.input = Stream::pipe;
    const auto process = start(request);
    for (int fd = 3; fd < 64; ++fd) {
        char target[64]{};
        const auto link = "/proc/self/fd/" + std::to_string(fd);
        if (readlink(link.c_str(), target, sizeof target - 1) < 0) continue;
        if (!std::string_view(target).starts_with("pipe:")) continue;
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
    }
    process->kill();
}

TEST(ChildProcess, TerminatesTheWholeGroup) {
    const auto process = start(shell("sleep 60 & echo $!; wait"));
    const auto watched = Watched::of(*process);
    const auto grandchild = watched->printedPid();
    ASSERT_GT(grandchild, 1);
    process->terminate();
    EXPECT_EQ(watched->exitStatus(), 128 + SIGTERM);
    EXPECT_TRUE(test::comesTrue([&] {
        std::ifstream stat("/proc/" + std::to_string(grandchild) + "/stat");
        std::string number, name, state;
        stat >> number >> name >> state;
        return state.empty() || state == "Z";
    }));
}

TEST(ChildProcess, KillsAChildThatIgnoresTermination) {
    auto process = start(shell("trap '' TERM; echo ready; while :; do sleep 0.01; done"));
    const auto watched = Watched::of(*process);
    ASSERT_TRUE(watched->hasLine());
    process->terminateWithin(100ms);
    process.reset();
    EXPECT_EQ(watched->exitStatus(), 128 + SIGKILL);
}

TEST(ChildProcess, LeavesAChildTimeToEnd) {
    auto process = start(shell("trap 'exit 6' TERM; echo ready; while :; do sleep 0.01; done"));
    const auto watched = Watched::of(*process);
    ASSERT_TRUE(watched->hasLine());
    process->terminateWithin(20s);
    EXPECT_EQ(watched->exitStatus(), 6);
}

TEST(ChildProcess, SignalsOnlyMembersOfItsSession) {
    const auto stranger = start(shell("exec sleep 60"));
    const auto process = start(shell("exec sleep 60"));
    process->terminateMember(stranger->pid());
    EXPECT_EQ(stranger->waitForExit(50ms), std::nullopt);
    stranger->kill();
    process->kill();
}

TEST(ChildProcess, SignalsAMemberOutsideItsGroup) {
    // A shell with job control gives each job a group of its own.
    auto request = shell("set -m; sleep 60 & echo $!; wait $!; echo ended $?");
    request.executable = "/bin/bash";
    const auto process = start(request);
    const auto watched = Watched::of(*process);
    process->terminateMember(watched->printedPid());
    EXPECT_EQ(watched->exitStatus(), 0);
    EXPECT_NE(watched->seen().find("ended 143"), std::string::npos) << watched->seen();
}

TEST(ChildProcess, IsReapedByItsDestruction) {
    auto process = start(shell("exit 0"));
    const auto pid = process->pid();
    process.reset();
    EXPECT_TRUE(test::comesTrue([&] { return !exists(pid); }));
}

TEST(ChildProcess, IsReapedWhenItOutlivesItsObject) {
    auto request = shell("read line");
    request.input = Stream::pipe;
    auto process = start(request);
    const auto pid = process->pid();
    ASSERT_TRUE(exists(pid));
    process.reset();
    EXPECT_TRUE(test::comesTrue([&] { return !exists(pid); }));
}

TEST(ChildProcess, StopsReadingAtTheLimit) {
    const auto process = start(shell("echo some; exec sleep 60"));
    const auto output = process->readToEnd(2s);
    EXPECT_FALSE(output.atEnd);
    EXPECT_EQ(output.bytes, "some\n");
    process->kill();
}

TEST(ChildProcess, StopsReadingAFloodAtTheLimit) {
    const auto process = start(shell("exec yes"));
    const auto output = process->readToEnd(2s, 1000);
    EXPECT_FALSE(output.atEnd);
    EXPECT_EQ(output.bytes.size(), 1000U);
    process->kill();
}

TEST(ChildProcess, KeepsTheEndOfALongOutput) {
    const auto output = start(shell("seq 1 100000"))->readToEnd(20s, 13);
    EXPECT_TRUE(output.atEnd);
    EXPECT_EQ(output.bytes, "99999\n100000\n");
}

TEST(ChildProcess, WatchDeliversEverythingBeforeTheExit) {
    const auto process = start(shell("seq 1 20000; exit 7"));
    const auto watched = Watched::of(*process);
    EXPECT_EQ(watched->exitStatus(), 7);
    EXPECT_TRUE(watched->seen().ends_with("\n20000\n"));
    EXPECT_EQ(watched->seen().size(), 108894U);
}

TEST(ChildProcess, WatchReportsTheExitWhileAGrandchildHoldsTheOutput) {
    const auto process = start(shell("sleep 60 & echo $!; exit 4"));
    const auto watched = Watched::of(*process);
    EXPECT_EQ(watched->exitStatus(), 4);
    const auto grandchild = watched->printedPid();
    ASSERT_GT(grandchild, 1);
    ::kill(grandchild, SIGKILL);
}

TEST(ChildProcess, WatchOutlivesTheObject) {
    auto request = shell("read line; exit 9");
    request.input = Stream::pipe;
    auto process = start(request);
    const auto watched = Watched::of(*process);
    process.reset();
    EXPECT_EQ(watched->exitStatus(), 9);
}

TEST(ChildProcess, WatchSleepsWhileNothingHappens) {
    const auto process = start(shell("exec sleep 60"));
    const auto watched = Watched::of(*process);
    const auto switches = [] {
        long total = 0;
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::string name;
            std::getline(std::ifstream(task.path() / "comm") >> std::ws, name);
            if (name != "sonra.child") continue;
            std::ifstream status(task.path() / "status");
            for (std::string word; status >> word;)
                if (word == "voluntary_ctxt_switches:" && status >> word) total += std::stol(word);
        }
        return total;
    };
    // At least the one with which it fell asleep.
    ASSERT_TRUE(test::comesTrue([&] { return switches() > 0; }));
    const auto before = switches();
    std::this_thread::sleep_for(500ms);
    EXPECT_LE(switches() - before, 1);
    process->kill();
    EXPECT_EQ(watched->exitStatus(), 128 + SIGKILL);
}

}  // namespace
}  // namespace sonra
