#include "linux/InotifyFileWatcher.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/LogWatch.h"
#include "support/PollLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using test::appendFile;
using test::writeFile;

/// What one watch has been told so far.
struct FileReports {
    int calls = 0;
    FileEvents all;

    FileWatcher::Callback callback() {
        return [this](FileEvents events) {
            ++calls;
            all.written |= events.written;
            all.renamed |= events.renamed;
            all.removed |= events.removed;
        };
    }
};

class InotifyFileWatcherTest : public testing::Test {
  protected:
    std::string makeFile(const std::string& name, std::string_view content = "one\n") {
        auto path = dir / name;
        writeFile(path, content);
        return path;
    }
    /// Events of one descriptor come in order: when a later change is reported, all before it have
    /// been.
    void settle() {
        const auto path = makeFile("settle-" + std::to_string(++settled_));
        FileReports marker;
        const auto watch = watcher->watch(path, marker.callback());
        appendFile(path, "x");
        ASSERT_TRUE(loop.runUntil([&] { return marker.calls > 0; }));
    }

    /// The inotify descriptor, which the kernel names.
    static int descriptor() {
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code ignored;
            if (fs::read_symlink(entry, ignored) == "anon_inode:inotify")
                return std::stoi(entry.path().filename());
        }
        return -1;
    }

    test::TempDir dir;
    test::PollLoop loop;
    std::unique_ptr<InotifyFileWatcher> watcher = std::make_unique<InotifyFileWatcher>(loop);
    FileReports reports;

  private:
    int settled_ = 0;
};

TEST_F(InotifyFileWatcherTest, ReportsAnAppendAsWrittenOnly) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    ASSERT_TRUE(watch);
    appendFile(path, "two\n");
    ASSERT_TRUE(loop.runUntil([&] { return reports.all.written; }));
    EXPECT_FALSE(reports.all.renamed);
    EXPECT_FALSE(reports.all.removed);
}

TEST_F(InotifyFileWatcherTest, ReportsEachHalfOfALineWhileTheWriterHoldsTheFile) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    std::ofstream writer(path, std::ios::app);
    writer << "first half, " << std::flush;
    ASSERT_TRUE(loop.runUntil([&] { return reports.calls == 1; }));
    writer << "second half\n" << std::flush;
    EXPECT_TRUE(loop.runUntil([&] { return reports.calls == 2; }));
}

TEST_F(InotifyFileWatcherTest, ReportsEventsThatArriveTogetherOnce) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    for (int i = 0; i < 5; ++i) appendFile(path, "more\n");
    settle();
    EXPECT_EQ(reports.calls, 1);
}

TEST_F(InotifyFileWatcherTest, ReportsATruncationAsWritten) {
    const auto path = makeFile("a", "long content\n");
    const auto watch = watcher->watch(path, reports.callback());
    fs::resize_file(path, 0);
    ASSERT_TRUE(loop.runUntil([&] { return reports.all.written; }));
    EXPECT_FALSE(reports.all.removed);
}

TEST_F(InotifyFileWatcherTest, ReportsARotationAsRenamed) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    fs::rename(path, dir / "a.1");
    makeFile("a", "new\n");
    ASSERT_TRUE(loop.runUntil([&] { return reports.all.renamed; }));
    EXPECT_FALSE(reports.all.removed);
}

TEST_F(InotifyFileWatcherTest, ReportsADeletionAsRemoved) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    fs::remove(path);
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.removed; }));
}

TEST_F(InotifyFileWatcherTest, ReportsADeletionWhileTheWriterHoldsTheFile) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    std::ofstream writer(path, std::ios::app);
    fs::remove(path);
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.removed; }));
}

TEST_F(InotifyFileWatcherTest, ReportsALostNameOfAFileWithTwoNames) {
    const auto path = makeFile("a");
    fs::create_hard_link(path, dir / "b");
    const auto watch = watcher->watch(path, reports.callback());
    fs::remove(dir / "b");
    settle();
    EXPECT_EQ(reports.calls, 0);
    fs::create_hard_link(path, dir / "b");
    fs::remove(path);
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.removed; }));
}

TEST_F(InotifyFileWatcherTest, ReportsAFileRenamedOverTheWatchedOneAsRenamed) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    std::ofstream writer(path, std::ios::app);
    fs::rename(makeFile("a.tmp", "whole\n"), path);
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.renamed; }));
}

TEST_F(InotifyFileWatcherTest, WatchesARecreatedFileWhenArmedAnew) {
    const auto path = makeFile("a");
    auto watch = watcher->watch(path, reports.callback());
    fs::remove(path);
    ASSERT_TRUE(loop.runUntil([&] { return reports.all.removed; }));
    EXPECT_FALSE(watcher->watch(path, reports.callback()));
    makeFile("a");
    reports = {};
    watch = watcher->watch(path, reports.callback());
    ASSERT_TRUE(watch);
    appendFile(path, "two\n");
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.written; }));
}

TEST_F(InotifyFileWatcherTest, ReportsADirectorysEntriesAsWritten) {
    const struct {
        const char* name;
        void (*change)(const test::TempDir&);
    } rows[] = {
        {"created", [](const auto& at) { writeFile(at / "in/new", ""); }},
        {"moved in", [](const auto& at) { fs::rename(at / "beside", at / "in/moved"); }},
        {"appended to", [](const auto& at) { appendFile(at / "in/there", "x"); }},
        {"moved out", [](const auto& at) { fs::rename(at / "in/there", at / "out"); }},
        {"deleted", [](const auto& at) { fs::remove(at / "in/moved"); }},
    };
    fs::create_directory(dir / "in");
    makeFile("in/there");
    makeFile("beside");
    const auto watch = watcher->watch(dir / "in", reports.callback());
    for (const auto& row : rows) {
        settle();
        reports = {};
        row.change(dir);
        EXPECT_TRUE(loop.runUntil([&] { return reports.all.written; })) << row.name;
        EXPECT_FALSE(reports.all.renamed || reports.all.removed) << row.name;
    }
}

TEST_F(InotifyFileWatcherTest, ReportsARemovedDirectory) {
    fs::create_directory(dir / "in");
    const auto watch = watcher->watch(dir / "in", reports.callback());
    fs::remove(dir / "in");
    EXPECT_TRUE(loop.runUntil([&] { return reports.all.removed; }));
}

TEST_F(InotifyFileWatcherTest, IsNotWokenByReadingAndSilentAboutModes) {
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    EXPECT_EQ(test::readFile(path), "one\n");
    pollfd ready{descriptor(), POLLIN, 0};
    EXPECT_EQ(poll(&ready, 1, 0), 0);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(poll(&ready, 1, 0), 1);
    settle();
    EXPECT_EQ(reports.calls, 0);
}

TEST_F(InotifyFileWatcherTest, AWatchDestroyedInItsOwnCallbackIsSafe) {
    const auto path = makeFile("a");
    std::unique_ptr<FileWatch> watch;
    int calls = 0;
    watch = watcher->watch(path, [&, payload = std::string(100, 'p')](FileEvents) {
        watch.reset();
        calls += payload.size() == 100 ? 1 : 100;
    });
    appendFile(path, "two\n");
    ASSERT_TRUE(loop.runUntil([&] { return calls > 0; }));
    appendFile(path, "three\n");
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(InotifyFileWatcherTest, AWatchDestroyedInAnothersCallbackIsNotCalled) {
    const auto path = makeFile("a");
    std::unique_ptr<FileWatch> first;
    std::unique_ptr<FileWatch> second;
    int calls = 0;
    const auto destroyBoth = [&](FileEvents) {
        ++calls;
        first.reset();
        second.reset();
    };
    first = watcher->watch(path, destroyBoth);
    second = watcher->watch(path, destroyBoth);
    appendFile(path, "two\n");
    settle();
    EXPECT_EQ(calls, 1);
}

TEST_F(InotifyFileWatcherTest, TheWatcherMayBeDestroyedInACallback) {
    const auto path = makeFile("a");
    int calls = 0;
    const auto destroyWatcher = [&](FileEvents) {
        ++calls;
        watcher.reset();
    };
    const auto first = watcher->watch(path, destroyWatcher);
    const auto second = watcher->watch(path, destroyWatcher);
    appendFile(path, "two\n");
    ASSERT_TRUE(loop.runUntil([&] { return calls > 0; }));
    EXPECT_EQ(calls, 1);
}

TEST_F(InotifyFileWatcherTest, AWatchArmedAnewInACallbackSeesTheNextChange) {
    const auto path = makeFile("a");
    std::unique_ptr<FileWatch> watch;
    int calls = 0;
    FileWatcher::Callback rearm = [&](FileEvents) {
        ++calls;
        watch.reset();
        watch = watcher->watch(path, rearm);
    };
    watch = watcher->watch(path, rearm);
    for (int i = 1; i <= 3; ++i) {
        appendFile(path, "more\n");
        settle();
        EXPECT_EQ(calls, i);
    }
}

TEST_F(InotifyFileWatcherTest, TwoWatchesOfOneFileEndIndependently) {
    const auto path = makeFile("a");
    fs::create_symlink(path, dir / "link");
    FileReports other;
    auto first = watcher->watch(path, reports.callback());
    const auto second = watcher->watch(dir / "link", other.callback());
    appendFile(path, "two\n");
    settle();
    EXPECT_EQ(reports.calls, 1);
    EXPECT_EQ(other.calls, 1);
    first.reset();
    appendFile(path, "three\n");
    settle();
    EXPECT_EQ(reports.calls, 1);
    EXPECT_EQ(other.calls, 2);
}

TEST_F(InotifyFileWatcherTest, AMissingPathGivesNull) {
    EXPECT_FALSE(watcher->watch(dir / "absent", reports.callback()));
    EXPECT_FALSE(watcher->watch("", reports.callback()));
}

TEST_F(InotifyFileWatcherTest, ReportsLostEventsToEveryWatchAsRenamed) {
    std::size_t queueLength = 0;
    std::ifstream("/proc/sys/fs/inotify/max_queued_events") >> queueLength;
    ASSERT_GT(queueLength, 0U);
    FileReports idle;
    const auto path = makeFile("a");
    const auto watch = watcher->watch(path, reports.callback());
    const auto idleWatch = watcher->watch(makeFile("idle"), idle.callback());
    const auto otherWatch = watcher->watch(makeFile("b"), [](FileEvents) {});
    // The kernel merges equal neighbours, so two files take turns.
    std::ofstream a(path, std::ios::app);
    std::ofstream b(dir / "b", std::ios::app);
    for (std::size_t i = 0; i <= queueLength / 2; ++i) {
        a << 'a' << std::flush;
        b << 'b' << std::flush;
    }
    ASSERT_TRUE(loop.runUntil([&] { return idle.all.renamed; }));
    EXPECT_TRUE(reports.all.renamed);
    EXPECT_FALSE(idle.all.written);
}

/// The limit is the kernel's, counted by user namespace: the test runs itself again in one of its
/// own.
TEST_F(InotifyFileWatcherTest, TheKernelsLimitGivesNullAndOneWarning) {
    const char* const inNamespace = "SONRA_TEST_ONE_INOTIFY_WATCH";
    if (std::getenv(inNamespace) == nullptr) {
        const std::string enter = "unshare --user --map-root-user ";
        if (std::system((enter + "true").c_str()) != 0)
            GTEST_SKIP() << "user namespaces are forbidden here";
        const test::ScopedEnv marked(inNamespace, "1");
        const test::ScopedEnv program("SONRA_TEST_PROGRAM", fs::read_symlink("/proc/self/exe"));
        const std::string rerun =
            "sh -c 'echo 1 > /proc/sys/user/max_inotify_watches &&"
            " exec \"$SONRA_TEST_PROGRAM\" --gtest_filter=*TheKernelsLimit*'";
        EXPECT_EQ(std::system((enter + rerun).c_str()), 0);
        return;
    }
    test::LogWatch log;
    log.expect("no more file watches; changes are found by polling");
    auto first = watcher->watch(makeFile("a"), reports.callback());
    EXPECT_TRUE(first);
    EXPECT_FALSE(watcher->watch(makeFile("b"), reports.callback()));
    EXPECT_FALSE(watcher->watch(makeFile("c"), reports.callback()));
    EXPECT_EQ(log.records().size(), 1U);
    first.reset();
    EXPECT_TRUE(watcher->watch(dir / "b", reports.callback()));
}

TEST_F(InotifyFileWatcherTest, ItsDescriptorIsClosedInChildren) {
    EXPECT_TRUE(fcntl(descriptor(), F_GETFD) & FD_CLOEXEC);
}

}  // namespace
}  // namespace sonra
