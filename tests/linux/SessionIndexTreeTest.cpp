// The session index on a real tree, watched by the system.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <thread>

#include "frame/WorkerPool.h"
#include "linux/InotifyTreeWatcher.h"
#include "search/SessionIndex.h"
#include "support/ComesTrue.h"
#include "support/ManualLoop.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

class SessionIndexTreeTest : public testing::Test {
  protected:
    ~SessionIndexTreeTest() override {
        index.reset();
        pool.drain();
    }

    std::string addSession(const std::string& path) const {
        fs::create_directories(fs::path(dir / path).parent_path());
        test::writeFile(dir / path, "{\"type\":\"user\",\"message\":{\"content\":\"hello\"}}\n");
        return SessionIndex::canonicalize(dir / path);
    }
    /// As the program does it.
    void reconcileAndWatch(const std::optional<std::string>& root) {
        const auto done = std::make_shared<std::promise<void>>();
        index->reconcile(root, [done] { done->set_value(); });
        ASSERT_EQ(done->get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
        index->startWatching(root);
    }
    bool comesToKnow(const std::string& id, const std::string& path) {
        return test::comesTrue([&] {
            const auto session = index->lookup(id);
            return session && session->jsonlPath == path;
        });
    }
    /// Never without a link in between.
    void pointElsewhere(const std::string& link, const std::string& target) const {
        fs::create_symlink(target, dir / "next");
        fs::rename(dir / "next", link);
    }
    /// `link` leads to `one`, then to `other`; both have the projects in `below`.
    void expectIsFollowed(const std::string& link, const std::string& below,
                          const std::optional<std::string>& root) {
        const auto before = addSession("one" + below + "/p/a.jsonl");
        const auto afterwards = addSession("other" + below + "/p/b.jsonl");
        fs::create_symlink(dir / "one", link);
        reconcileAndWatch(root);
        ASSERT_TRUE(comesToKnow("a", before));
        // Once it is watched.
        ASSERT_TRUE(comesToKnow("c", addSession("one" + below + "/p/c.jsonl")));
        pointElsewhere(link, dir / "other");
        ASSERT_TRUE(comesToKnow("b", afterwards));
        EXPECT_FALSE(index->lookup("a"));
        EXPECT_FALSE(index->lookup("c"));
        EXPECT_TRUE(comesToKnow("d", addSession("other" + below + "/p/d.jsonl")));
        EXPECT_EQ(index->snapshot().size(), 2U);
    }

    test::TempDir dir;
    test::ManualLoop loop;
    WorkerPool pool;
    InotifyTreeWatcher watcher;
    std::unique_ptr<SessionIndex> index =
        std::make_unique<SessionIndex>(loop, pool, watcher, SessionIndexStore(dir / "cache"));
};

TEST_F(SessionIndexTreeTest, ARootThatIsALinkIsFollowedWhereItIsPointedTo) {
    expectIsFollowed(dir / "projects", "", dir / "projects");
}

TEST_F(SessionIndexTreeTest, ALinkOnTheWayToTheDefaultRootIsFollowedWhereItIsPointedTo) {
    const test::ScopedEnv home("HOME", dir.path());
    expectIsFollowed(dir / ".claude", "/projects", std::nullopt);
}

TEST_F(SessionIndexTreeTest, FilesThatComeAndGoDuringTheFirstReadingLeaveTheCatalogueRight) {
    constexpr int count = 1000;
    for (int i = 0; i < count; ++i) addSession("projects/p/" + std::to_string(i) + ".jsonl");
    std::jthread changer([&] {
        for (int i = 0; i < count; i += 2) {
            fs::remove(dir / ("projects/p/" + std::to_string(i) + ".jsonl"));
            if (i % 10 == 0) addSession("projects/q/new" + std::to_string(i) + ".jsonl");
        }
    });
    reconcileAndWatch(dir / "projects");
    changer.join();
    EXPECT_TRUE(test::comesTrue([&] {
        int missing = 0;
        for (int i = 0; i < count; i += 10)
            missing += index->lookup("new" + std::to_string(i)) ? 0 : 1;
        return missing == 0 && index->snapshot().size() == count / 2 + count / 10;
    }));
}

}  // namespace
}  // namespace sonra
