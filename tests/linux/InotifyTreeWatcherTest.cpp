#include "linux/InotifyTreeWatcher.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>

#include "support/ComesTrue.h"
#include "support/LogWatch.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// What a watch has told, from its thread.
class Reports {
  public:
    TreeWatcher::Callback callback() {
        return [this](const TreeEvents& events) {
            const std::lock_guard lock(mutex_);
            ++calls_;
            rescans_ += events.rescan ? 1 : 0;
            paths_.insert(events.paths.begin(), events.paths.end());
        };
    }
    bool has(const std::string& path) {
        const std::lock_guard lock(mutex_);
        return paths_.contains(path);
    }
    int rescans() {
        const std::lock_guard lock(mutex_);
        return rescans_;
    }
    int calls() {
        const std::lock_guard lock(mutex_);
        return calls_;
    }

  private:
    std::mutex mutex_;
    std::set<std::string> paths_;
    int rescans_ = 0;
    int calls_ = 0;
};

class InotifyTreeWatcherTest : public testing::Test {
  protected:
    InotifyTreeWatcherTest() { fs::create_directories(root + "/p"); }

    std::string write(const std::string& name) {
        auto path = root + "/" + name;
        test::appendFile(path, "{}\n");
        return path;
    }

    test::TempDir dir;
    const std::string root = dir / "projects";
    Reports reports;
    InotifyTreeWatcher watcher;
};

TEST_F(InotifyTreeWatcherTest, ANewFileIsReportedByEventsAlone) {
    const auto watch = watcher.watch(root, reports.callback());
    const auto start = Clock::now();
    const auto path = write("p/a.jsonl");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(path); }));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(reports.rescans(), 0);
}

TEST_F(InotifyTreeWatcherTest, AFileInANewDirectoryIsReported) {
    const auto watch = watcher.watch(root, reports.callback());
    fs::create_directory(root + "/q");
    const auto first = write("q/a.jsonl");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(first); }));
    const auto second = write("q/b.jsonl");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(second); }));
}

TEST_F(InotifyTreeWatcherTest, WritesOfHalfASecondAreOneReport) {
    const auto watch = watcher.watch(root, reports.callback());
    const auto start = Clock::now();
    for (int i = 0; i < 200; ++i) write("p/a.jsonl");
    const auto last = write("p/last.jsonl");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(last); }));
    const auto calls = reports.calls();
    const auto halves = (Clock::now() - start) / std::chrono::milliseconds(500);
    EXPECT_LE(calls, halves + 1);
}

TEST_F(InotifyTreeWatcherTest, AMovedRootIsADemandToRescanAndSoIsItsReturn) {
    const auto watch = watcher.watch(root, reports.callback());
    fs::rename(root, root + "2");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 1; }));
    fs::rename(root + "2", root);
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 2; }));
    const auto path = write("p/a.jsonl");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(path); }));
}

TEST_F(InotifyTreeWatcherTest, AMovedParentIsADemandToRescanAndAFreshTreeInItsPlaceIsWatched) {
    const auto deep = root + "/p/projects";
    fs::create_directories(deep + "/p");
    const auto watch = watcher.watch(deep, reports.callback());
    fs::rename(root, root + ".bak");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 1; }));
    fs::create_directories(deep + "/p");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 2; }));
    const auto path = write("p/projects/p/a.jsonl");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(path); }));
}

TEST_F(InotifyTreeWatcherTest, AParentThatIsReplacedAtOnceIsNoticed) {
    const auto deep = root + "/p/projects";
    fs::create_directories(deep + "/p");
    fs::create_directories(dir / "fresh/p/projects/p");
    const auto watch = watcher.watch(deep, reports.callback());
    fs::rename(root, root + ".bak");
    fs::rename(dir / "fresh", root);
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() > 0; }));
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(write("p/projects/p/a.jsonl")); }));
    test::appendFile(root + ".bak/p/projects/p/old.jsonl", "{}\n");
    const auto last = write("p/projects/p/last.jsonl");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(last); }));
    EXPECT_FALSE(reports.has(deep + "/p/old.jsonl"));
}

TEST_F(InotifyTreeWatcherTest, ARootThatAppearsLaterIsWatched) {
    fs::remove_all(root);
    const auto watch = watcher.watch(root, reports.callback());
    ASSERT_TRUE(watch);
    fs::create_directories(root + "/p");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() > 0; }));
    const auto path = write("p/a.jsonl");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(path); }));
}

class InotifyTreeWatcherLinkTest : public InotifyTreeWatcherTest {
  protected:
    /// In one step, as tools do that never leave a gap.
    void point(const std::string& link, const std::string& target) {
        fs::create_directory_symlink(target, link + ".new");
        fs::rename(link + ".new", link);
    }
    void makeTree(const std::string& name) { fs::create_directories(dir / (name + "/p")); }
    /// True once a file that is written below `real` is reported below `named`.
    bool isWatched(const std::string& real, const std::string& named) {
        return test::comesTrue([&] {
            test::appendFile(real + "/a.jsonl", "{}\n");
            return reports.has(named + "/a.jsonl");
        });
    }
};

TEST_F(InotifyTreeWatcherLinkTest, ARootThatIsALinkIsFollowedWhereItIsPointed) {
    makeTree("one");
    makeTree("two");
    const auto link = (dir / "link");
    point(link, dir / "one");
    const auto watch = watcher.watch(link, reports.callback());
    ASSERT_TRUE(isWatched(dir / "one/p", link + "/p"));
    ASSERT_EQ(reports.rescans(), 0);
    point(link, dir / "two");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 1; }));
    test::appendFile(dir / "two/p/b.jsonl", "{}\n");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(link + "/p/b.jsonl"); }));
    test::appendFile(dir / "one/p/old.jsonl", "{}\n");
    test::appendFile(dir / "two/p/last.jsonl", "{}\n");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(link + "/p/last.jsonl"); }));
    EXPECT_FALSE(reports.has(link + "/p/old.jsonl"));
    // Other things in the link's directory are no news.
    fs::create_directory(dir / "else");
    test::appendFile(dir / "two/p/again.jsonl", "{}\n");
    ASSERT_TRUE(test::comesTrue([&] { return reports.has(link + "/p/again.jsonl"); }));
    EXPECT_EQ(reports.rescans(), 1);
}

TEST_F(InotifyTreeWatcherLinkTest, ALinkAboveTheRootAndALinkToALinkAreToo) {
    makeTree("one/projects");
    makeTree("two/projects");
    makeTree("three/projects");
    fs::create_directory(dir / "links");
    fs::create_directory_symlink("../one", dir / "links/far");
    fs::create_directory_symlink("links/far", dir / "near");
    const auto watch = watcher.watch(dir / "near/projects", reports.callback());
    point(dir / "links/far", "../two");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 1; }));
    ASSERT_TRUE(isWatched(dir / "two/projects/p", dir / "near/projects/p"));
    point(dir / "near", dir / "three");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 2; }));
    test::appendFile(dir / "three/projects/p/b.jsonl", "{}\n");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(dir / "near/projects/p/b.jsonl"); }));
}

TEST_F(InotifyTreeWatcherLinkTest, ATargetThatIsMovedAwayAndAnotherInItsPlaceAreNoticed) {
    makeTree("disk/one");
    fs::create_directory_symlink(dir / "disk/one", dir / "link");
    const auto watch = watcher.watch(dir / "link", reports.callback());
    fs::rename(dir / "disk", dir / "gone");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() == 1; }));
    makeTree("disk/one");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() > 1; }));
    EXPECT_TRUE(isWatched(dir / "disk/one/p", dir / "link/p"));
}

TEST_F(InotifyTreeWatcherLinkTest, ALinkToItselfIsNoCircleToGoRound) {
    fs::create_directory_symlink("link", dir / "link");
    const auto watch = watcher.watch(dir / "link", reports.callback());
    ASSERT_TRUE(watch);
    makeTree("one");
    point(dir / "link", dir / "one");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() > 0; }));
    EXPECT_TRUE(isWatched(dir / "one/p", dir / "link/p"));
}

TEST_F(InotifyTreeWatcherLinkTest, AProjectThatIsALinkIsFollowedWhereItIsPointed) {
    makeTree("one");
    makeTree("two");
    fs::create_directory_symlink(dir / "one", root + "/q");
    const auto watch = watcher.watch(root, reports.callback());
    ASSERT_TRUE(isWatched(dir / "one", root + "/q"));
    point(root + "/q", dir / "two");
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() > 0; }));
    test::appendFile(dir / "two/b.jsonl", "{}\n");
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(root + "/q/b.jsonl"); }));
}

TEST_F(InotifyTreeWatcherTest, AfterItsEndAWatchIsSilent) {
    auto watch = watcher.watch(root, reports.callback());
    Reports other;
    const auto otherWatch = watcher.watch(root, other.callback());
    watch.reset();
    const auto path = write("p/a.jsonl");
    ASSERT_TRUE(test::comesTrue([&] { return other.has(path); }));
    EXPECT_EQ(reports.calls(), 0);
}

TEST_F(InotifyTreeWatcherTest, AWatchMayEndInsideItsCallback) {
    std::unique_ptr<TreeWatch> watch;
    std::mutex made;
    std::atomic<bool> ended = false;
    {
        const std::lock_guard lock(made);
        watch = watcher.watch(root, [&](const TreeEvents&) {
            const std::lock_guard whenMade(made);
            watch.reset();
            ended = true;
        });
    }
    write("p/a.jsonl");
    EXPECT_TRUE(test::comesTrue([&] { return ended.load(); }));
    const std::lock_guard untilItHasReturned(made);
}

/// The limit is the kernel's, counted by user namespace: the test runs itself again in one of its
/// own.
TEST_F(InotifyTreeWatcherTest, TheLimitOfWatchesIsSaidOnceAndRescansTakeTheirPlace) {
    const char* const inNamespace = "SONRA_TEST_FEW_INOTIFY_WATCHES";
    if (std::getenv(inNamespace) == nullptr) {
        const std::string enter = "unshare --user --map-root-user ";
        if (std::system((enter + "true").c_str()) != 0)
            GTEST_SKIP() << "user namespaces are forbidden here";
        const test::ScopedEnv marked(inNamespace, "1");
        const test::ScopedEnv program("SONRA_TEST_PROGRAM", fs::read_symlink("/proc/self/exe"));
        const auto above = fs::path(root).parent_path();
        const test::ScopedEnv watches("SONRA_TEST_WATCHES_ABOVE",
                                      std::to_string(std::distance(above.begin(), above.end())));
        const std::string rerun =
            // The directories above, the root and one of the two in it.
            "sh -c 'echo $((SONRA_TEST_WATCHES_ABOVE + 2)) > /proc/sys/user/max_inotify_watches &&"
            " exec \"$SONRA_TEST_PROGRAM\" --gtest_filter=*TheLimitOfWatches*'";
        EXPECT_EQ(std::system((enter + rerun).c_str()), 0);
        return;
    }
    test::LogWatch log;
    log.expect("no more file watches; sessions are looked for every 30 s");
    fs::create_directory(root + "/q");
    using std::chrono::milliseconds;
    InotifyTreeWatcher quick(InotifyTreeWatcher::Times{milliseconds(5), milliseconds(20)});
    const auto watch = quick.watch(root, reports.callback());
    ASSERT_TRUE(test::comesTrue([&] { return reports.rescans() >= 3; }));
    EXPECT_EQ(log.records().size(), 1U);
    fs::remove(root + "/q");
    // There is room now, from the next rescan on.
    EXPECT_TRUE(test::comesTrue([&] { return reports.has(write("p/a.jsonl")); }));
}

}  // namespace
}  // namespace sonra
