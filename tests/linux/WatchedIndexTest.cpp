#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "frame/Semaphore.h"
#include "frame/WorkerPool.h"
#include "linux/InotifyTreeWatcher.h"
#include "search/SessionIndex.h"
#include "support/ComesTrue.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

/// Tells when a watch has begun.
class TellingWatcher : public TreeWatcher {
  public:
    std::unique_ptr<TreeWatch> watch(const std::string& root, Callback onEvents) override {
        auto watch = watcher_.watch(root, std::move(onEvents));
        begun.signal();
        return watch;
    }

    Semaphore begun{0};

  private:
    InotifyTreeWatcher watcher_;
};

/// The index and the kernel's events together.
class WatchedIndexTest : public testing::Test {
  protected:
    WatchedIndexTest() { fs::create_directories(root + "/p"); }
    ~WatchedIndexTest() override {
        index.reset();
        pool.drain();
    }

    static std::string addSession(const std::string& path) {
        test::writeFile(path, R"({"type":"user","message":{"role":"user","content":"hello"}})"
                              "\n");
        return path;
    }
    /// Returns when the watch has begun.
    void watch(const std::string& path) {
        index->startWatching(path);
        watcher.begun.wait();
    }
    [[nodiscard]] bool comes(const std::string& sessionId) const {
        return test::comesTrue([&] { return index->lookup(sessionId).has_value(); });
    }

    test::TempDir dir;
    const std::string root = SessionIndex::canonicalize(dir.path()) + "/home/projects";
    test::ManualLoop loop;
    WorkerPool pool;
    TellingWatcher watcher;
    std::unique_ptr<SessionIndex> index =
        std::make_unique<SessionIndex>(loop, pool, watcher, SessionIndexStore(dir / "cache"));
};

TEST_F(WatchedIndexTest, ANewTranscriptAppearsWithinThreeSecondsThroughEventsAlone) {
    addSession(root + "/p/there.jsonl");
    addSession(root + "/p/before.jsonl");
    watch(root);
    ASSERT_TRUE(comes("there"));
    pool.drain();
    const auto start = Clock::now();
    const auto path = addSession(root + "/p/a.jsonl");
    ASSERT_TRUE(comes("a"));
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(index->lookup("a")->jsonlPath, path);
    EXPECT_EQ(index->reconcileProgress(), (ReconcileProgress{2, 2, false}))
        << "the tree was looked at again";
}

TEST_F(WatchedIndexTest, ARenamedParentEmptiesTheCatalogueAndAFreshTreeFillsIt) {
    watch(root);
    addSession(root + "/p/first.jsonl");
    ASSERT_TRUE(comes("first"));
    fs::rename(dir / "home", dir / "home.bak");
    ASSERT_TRUE(test::comesTrue([&] { return index->snapshot().empty(); }));
    fs::create_directories(root + "/p");
    addSession(root + "/p/a.jsonl");
    ASSERT_TRUE(comes("a"));
    addSession(root + "/p/b.jsonl");
    ASSERT_TRUE(comes("b"));
    EXPECT_FALSE(index->lookup("first"));
}

TEST_F(WatchedIndexTest, ARootThatComesAsALinkGivesEachTranscriptOneRow) {
    const auto link = SessionIndex::canonicalize(dir.path()) + "/link";
    watch(link);
    fs::create_symlink("home/projects", link);
    addSession(root + "/p/a.jsonl");
    ASSERT_TRUE(comes("a"));
    addSession(root + "/p/a.jsonl");
    addSession(root + "/p/b.jsonl");
    ASSERT_TRUE(comes("b"));
    EXPECT_EQ(index->snapshot().size(), 2U);
    EXPECT_EQ(index->lookup("a")->jsonlPath, root + "/p/a.jsonl");
}

}  // namespace
}  // namespace sonra
