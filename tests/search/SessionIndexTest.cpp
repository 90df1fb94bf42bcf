#include "search/SessionIndex.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

#include "IndexFixture.h"
#include "frame/Semaphore.h"
#include "frame/ThreadAffinity.h"
#include "support/ComesTrue.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

class SessionIndexTest : public test::IndexTest {};

TEST_F(SessionIndexTest, BootstrapOnAnEmptyCacheGivesAnEmptySnapshot) {
    index_->bootstrap();
    EXPECT_TRUE(index_->snapshot().empty());
    EXPECT_FALSE(index_->lookup("a"));
}

TEST_F(SessionIndexTest, AReconcileIndexesAllAndAnotherIndexStartsFromItsCache) {
    addSession("p/a.jsonl");
    addSession("p/b.jsonl");
    fs::create_directory(root_ + "/q");
    addSession("q/c.jsonl");
    reconcile();
    const auto before = index_->snapshot();
    EXPECT_EQ(before.size(), 3U);
    EXPECT_TRUE(fs::exists(dir_ / "cache/sessions.json"));
    fs::remove_all(root_);
    index_ = makeIndex();
    index_->bootstrap();
    EXPECT_EQ(index_->snapshot(), before);
    EXPECT_EQ(index_->lookup("c")->firstUserPrompt, "hello");
}

TEST_F(SessionIndexTest, NoSearchHasToPrepareACatalogueThatWasSaidToBeThere) {
    const auto path = addSession("p/a.jsonl");
    EXPECT_FALSE(index_->snapshot().isPrepared());
    reconcile();
    EXPECT_TRUE(index_->snapshot().isPrepared());
    std::vector<bool> prepared;
    const auto handle = index_->ttsSessionsChanged(
        [&](const SessionSnapshot& sessions) { prepared.push_back(sessions.isPrepared()); });
    index_->applyTouched({path});
    ASSERT_TRUE(loop_.runUntil([&] { return !prepared.empty(); }));
    EXPECT_TRUE(prepared[0]);
    index_ = makeIndex();
    index_->bootstrap();
    pool_.drain();
    EXPECT_TRUE(index_->snapshot().isPrepared());
}

TEST_F(SessionIndexTest, ATouchedTranscriptHasItsNewTime) {
    const auto path = addSession("p/a.jsonl");
    reconcile();
    const timespec times[2] = {{1'700'000'000, 0}, {1'700'000'000, 123'456'789}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    reconcile();
    EXPECT_EQ(index_->lookup("a")->mtime, 1'700'000'000 + 123'456'789 / 1e9);
}

TEST_F(SessionIndexTest, WhatDidntChangeIsntReadAgain) {
    const auto path = addSession("p/a.jsonl", "first");
    const timespec times[2] = {{1'700'000'000, 0}, {1'700'000'000, 123'456'789}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    reconcile();
    addSession("p/a.jsonl", "other");
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
    index_ = makeIndex();
    index_->bootstrap();
    reconcile();
    EXPECT_EQ(index_->lookup("a")->firstUserPrompt, "first");
    EXPECT_EQ(index_->reconcileProgress(), (ReconcileProgress{0, 0, false}));
}

TEST_F(SessionIndexTest, ADeletedTranscriptLosesItsRow) {
    const auto path = addSession("p/a.jsonl");
    addSession("p/b.jsonl");
    reconcile();
    fs::remove(path);
    reconcile();
    EXPECT_EQ(paths(), Paths{root_ + "/p/b.jsonl"});
    EXPECT_FALSE(index_->lookup("a"));
}

TEST_F(SessionIndexTest, AMissingRootDropsAllAndTheEmptyCatalogueIsSaved) {
    addSession("p/a.jsonl");
    reconcile();
    fs::remove_all(root_);
    reconcile();
    EXPECT_TRUE(index_->snapshot().empty());
    EXPECT_EQ(SessionIndexStore(dir_ / "cache").load()->sessions.size(), 0U);
}

TEST_F(SessionIndexTest, OnlyJsonlFilesOneLevelDeepCount) {
    addSession("p/a.jsonl");
    addSession("p/a.json");
    addSession("top.jsonl");
    fs::create_directory(root_ + "/p/deeper");
    addSession("p/deeper/b.jsonl");
    reconcile();
    EXPECT_EQ(paths(), Paths{root_ + "/p/a.jsonl"});
}

TEST_F(SessionIndexTest, TheSnapshotIsNewestFirst) {
    for (const auto& [name, seconds] : {std::pair{"a", 10}, {"b", 30}, {"c", 20}, {"d", 30}}) {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ::utimensat(AT_FDCWD, addSession(std::string("p/") + name + ".jsonl").c_str(), times, 0);
    }
    reconcile();
    std::string order;
    for (const auto& meta : index_->snapshot()) order += meta.sessionId;
    EXPECT_EQ(order, "bdca");
}

TEST_F(SessionIndexTest, TwoTranscriptsOfOneIdAreTwoSessions) {
    fs::create_directory(root_ + "/q");
    const auto one = addSession("p/a.jsonl");
    const auto other = addSession("q/a.jsonl");
    reconcile();
    EXPECT_EQ(index_->snapshot().size(), 2U);
    fs::remove(one);
    reconcile();
    EXPECT_EQ(index_->lookup("a")->jsonlPath, other);
}

TEST_F(SessionIndexTest, OfTwoTranscriptsOfOneIdTheNewestAnswersAfterARestartToo) {
    fs::create_directory(root_ + "/q");
    const auto setTime = [](const std::string& path, time_t seconds) {
        const timespec times[2] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    };
    const auto newer = addSession("p/a.jsonl");
    const auto older = addSession("q/a.jsonl");
    setTime(newer, 2000);
    setTime(older, 1000);
    reconcile();
    EXPECT_EQ(index_->lookup("a")->jsonlPath, newer);
    index_ = makeIndex();
    index_->bootstrap();
    EXPECT_EQ(index_->lookup("a")->jsonlPath, newer);
    setTime(older, 3000);
    reconcile();
    EXPECT_EQ(index_->lookup("a")->jsonlPath, older);
    index_ = makeIndex();
    index_->bootstrap();
    EXPECT_EQ(index_->lookup("a")->jsonlPath, older);
}

TEST_F(SessionIndexTest, ListenersHearTheCataloguesInTheOrderInWhichTheyCameToBe) {
    std::vector<std::size_t> told;
    const auto handle = index_->ttsSessionsChanged(
        [&](const SessionSnapshot& sessions) { told.push_back(sessions.size()); });
    Paths added;
    for (int i = 0; i < 300; ++i) added.push_back(addSession("p/" + std::to_string(i) + ".jsonl"));
    for (const auto& path : added) index_->applyTouched({path});
    pool_.drain();
    loop_.runPosted();
    EXPECT_EQ(told.size(), added.size());
    EXPECT_TRUE(std::ranges::is_sorted(told));
    EXPECT_EQ(told.back(), added.size());
}

TEST_F(SessionIndexTest, ChangesAreToldOnTheMainLoop) {
    addSession("p/a.jsonl");
    std::vector<std::size_t> told;
    auto handle = index_->ttsSessionsChanged([&](const SessionSnapshot& sessions) {
        EXPECT_TRUE(onMainThread());
        told.push_back(sessions.size());
    });
    reconcile();
    EXPECT_TRUE(told.empty());
    ASSERT_TRUE(loop_.runUntil([&] { return !told.empty(); }));
    EXPECT_EQ(told, std::vector<std::size_t>{1});
    handle.cancel();
    reconcile();
    pool_.drain();
    loop_.runPosted();
    EXPECT_EQ(told.size(), 1U);
}

TEST_F(SessionIndexTest, AListenerMayEndTheIndex) {
    LoopHandle first, second;
    bool secondRan = false;
    first = index_->ttsSessionsChanged([&](const SessionSnapshot&) { index_.reset(); });
    second = index_->ttsSessionsChanged([&](const SessionSnapshot&) { secondRan = true; });
    reconcile();
    ASSERT_TRUE(loop_.runUntil([&] { return !index_; }));
    EXPECT_FALSE(secondRan);
}

TEST_F(SessionIndexTest, TouchedPathsAreLookedAtAgain) {
    const auto path = addSession("p/a.jsonl");
    index_->applyTouched({path, root_ + "/p/none.jsonl"});
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("a").has_value(); }));
    fs::remove(path);
    index_->applyTouched({path});
    ASSERT_TRUE(test::comesTrue([&] { return !index_->lookup("a"); }));
    pool_.drain();
    EXPECT_TRUE(SessionIndexStore(dir_ / "cache").load()->sessions.empty());
}

TEST_F(SessionIndexTest, TouchingNothingTellsNothing) {
    int told = 0;
    const auto handle = index_->ttsSessionsChanged([&](const SessionSnapshot&) { ++told; });
    index_->applyTouched({});
    pool_.drain();
    loop_.runPosted();
    EXPECT_EQ(told, 0);
    EXPECT_FALSE(fs::exists(dir_ / "cache/sessions.json"));
}

TEST_F(SessionIndexTest, ACacheThatCantBeWrittenLeavesTheCatalogueRight) {
    test::writeFile(dir_ / "cache", "a file, not a directory");
    addSession("p/a.jsonl");
    reconcile();
    EXPECT_TRUE(index_->lookup("a"));
}

TEST_F(SessionIndexTest, ADamagedCacheIsRebuilt) {
    addSession("p/a.jsonl");
    fs::create_directory(dir_ / "cache");
    test::writeFile(dir_ / "cache/sessions.json", "{\"sessions\":[{");
    testing::internal::CaptureStderr();
    index_->bootstrap();
    EXPECT_NE(testing::internal::GetCapturedStderr().find("corrupt cache"), std::string::npos);
    EXPECT_TRUE(index_->snapshot().empty());
    reconcile();
    EXPECT_EQ(SessionIndexStore(dir_ / "cache").load()->sessions.size(), 1U);
}

TEST_F(SessionIndexTest, UnreadableDirectoriesAndLoopsOfLinksCostNobodyElse) {
    addSession("p/a.jsonl");
    fs::create_symlink("loop", root_ + "/loop");
    fs::create_symlink("..", root_ + "/p/up");
    fs::create_symlink(".", root_ + "/self");
    fs::create_symlink("p", root_ + "/alias");
    fs::create_symlink("nowhere", root_ + "/p/broken.jsonl");
    fs::create_symlink("circle.jsonl", root_ + "/p/circle.jsonl");
    test::writeFile(root_ + "/file", "not a directory");
    reconcile();
    EXPECT_EQ(paths(), (Paths{root_ + "/alias/a.jsonl", root_ + "/p/a.jsonl"}));
}

TEST_F(SessionIndexTest, NamesThatArentUtf8AreFoundAndOutliveTheProgram) {
    fs::create_directory(root_ + "/\xFF\xFE");
    Paths expected{addSession("\xFF\xFE/a.jsonl"), addSession("p/b\xC3.jsonl"),
                   addSession("p/b\xC4.jsonl"), addSession("p/c.jsonl")};
    std::ranges::sort(expected);
    reconcile();
    EXPECT_EQ(paths(), expected);
    index_ = makeIndex();
    index_->bootstrap();
    EXPECT_EQ(paths(), expected);
    reconcile();
    EXPECT_EQ(index_->reconcileProgress().total, 0);
}

TEST_F(SessionIndexTest, TwentyThousandTranscriptsInOneDirectory) {
    for (int i = 0; i < 20'000; ++i)
        test::writeFile(root_ + "/p/" + std::to_string(i) + ".jsonl", "{}\n");
    reconcile();
    EXPECT_EQ(index_->snapshot().size(), 20'000U);
    EXPECT_EQ(index_->reconcileProgress(), (ReconcileProgress{20'000, 20'000, false}));
}

TEST_F(SessionIndexTest, FilesThatVanishUnderTheWalkLeaveTheCatalogueRight) {
    for (int i = 0; i < 3000; ++i)
        test::writeFile(root_ + "/p/" + std::to_string(i) + ".jsonl", "{}\n");
    std::jthread remover([&] {
        for (int i = 0; i < 3000; i += 2) fs::remove(root_ + "/p/" + std::to_string(i) + ".jsonl");
    });
    reconcile();
    EXPECT_EQ(index_->reconcileProgress().done, index_->reconcileProgress().total);
    remover.join();
    index_->startWatching(root_);
    EXPECT_TRUE(test::comesTrue([&] { return index_->snapshot().size() == 1500; }));
    pool_.drain();
    EXPECT_EQ(index_->snapshot().size(), 1500U);
    EXPECT_EQ(SessionIndexStore(dir_ / "cache").load()->sessions.size(), 1500U);
}

TEST_F(SessionIndexTest, WhatHappenedBeforeTheWatchBeganIsFoundOnceItRuns) {
    const auto gone = addSession("p/gone.jsonl");
    addSession("p/changed.jsonl", "before");
    reconcile();
    loop_.runPosted();
    fs::remove(gone);
    addSession("p/changed.jsonl", "afterwards");
    addSession("p/new.jsonl");
    std::vector<std::size_t> told;
    const auto handle = index_->ttsSessionsChanged(
        [&](const SessionSnapshot& sessions) { told.push_back(sessions.size()); });
    index_->startWatching(root_);
    ASSERT_TRUE(loop_.runUntil([&] { return !told.empty() && told.back() == 2; }));
    EXPECT_EQ(paths(), (Paths{root_ + "/p/changed.jsonl", root_ + "/p/new.jsonl"}));
    EXPECT_EQ(index_->lookup("changed")->firstUserPrompt, "afterwards");
    EXPECT_EQ(SessionIndexStore(dir_ / "cache").load()->sessions.size(), 2U);
}

TEST_F(SessionIndexTest, ATreeInWhichNothingHappenedBeforeTheWatchBeganIsNoNews) {
    addSession("p/a.jsonl");
    watch();
    loop_.runPosted();
    index_->stopWatching();
    ASSERT_TRUE(test::comesTrue([&] { return watcher_.running() == 0; }));
    std::vector<SessionSnapshot> told;
    const auto handle = index_->ttsSessionsChanged(
        [&](const SessionSnapshot& sessions) { told.push_back(sessions); });
    index_->startWatching(root_);
    ASSERT_TRUE(test::comesTrue([&] { return watcher_.running() == 1; }));
    // What is asked for later is told later.
    ASSERT_TRUE(watcher_.fire({{addSession("../b.jsonl")}, false}));
    ASSERT_TRUE(loop_.runUntil([&] { return !told.empty(); }));
    EXPECT_EQ(told[0].size(), 3U);
}

TEST_F(SessionIndexTest, TwoReconcilesMayOverlap) {
    for (int i = 0; i < 500; ++i)
        test::writeFile(root_ + "/p/" + std::to_string(i) + ".jsonl", "{}\n");
    auto both = std::make_shared<std::atomic<int>>(0);
    for (int i = 0; i < 2; ++i) index_->reconcile(root_, [both] { ++*both; });
    ASSERT_TRUE(test::comesTrue([&] { return *both == 2; }));
    EXPECT_EQ(index_->snapshot().size(), 500U);
    const auto progress = index_->reconcileProgress();
    EXPECT_FALSE(progress.inFlight);
    EXPECT_EQ(progress.done, progress.total);
    EXPECT_EQ(SessionIndexStore(dir_ / "cache").load()->sessions.size(), 500U);
}

TEST_F(SessionIndexTest, AnIndexThatGoesEndsItsReconcile) {
    for (int i = 0; i < 2000; ++i)
        test::writeFile(root_ + "/p/" + std::to_string(i) + ".jsonl", "{}\n");
    // On a busy machine a reconcile may come to its end before the index goes, but not every time.
    bool wasEnded = false;
    for (int attempt = 0; attempt < 20 && !wasEnded; ++attempt) {
        index_ = makeIndex();
        const auto completed = std::make_shared<std::atomic<bool>>(false);
        index_->reconcile(root_, [completed] { *completed = true; });
        ASSERT_TRUE(test::comesTrue([&] { return index_->reconcileProgress().done > 0; }));
        index_.reset();
        pool_.drain();
        wasEnded = !*completed;
    }
    EXPECT_TRUE(wasEnded);
    EXPECT_EQ(watcher_.running(), 0);
}

TEST_F(SessionIndexTest, AnIndexThatGoesWaitsForACompletionThatHasBegun) {
    Semaphore begun;
    Semaphore gone;
    std::atomic<bool> isOver = false;
    index_->reconcile(root_, [&] {
        begun.signal();
        // Nobody signals; who doesn't wait for it would have gone by then.
        EXPECT_FALSE(gone.waitFor(std::chrono::milliseconds(100)));
        isOver = true;
    });
    ASSERT_TRUE(begun.waitFor(std::chrono::seconds(60)));
    index_.reset();
    EXPECT_TRUE(isOver);
    gone.signal();
    pool_.drain();
}

TEST_F(SessionIndexTest, TheDefaultRootFollowsHome) {
    const test::ScopedEnv home("HOME", "/home/x");
    EXPECT_EQ(SessionIndex::defaultProjectsRoot(), "/home/x/.claude/projects");
}

TEST_F(SessionIndexTest, APathThatCantBeResolvedStaysAsItIs) {
    EXPECT_EQ(SessionIndex::canonicalize("/none/../such"), "/none/../such");
    fs::create_symlink(root_, dir_ / "link");
    EXPECT_EQ(SessionIndex::canonicalize(dir_ / "link/./p"), root_ + "/p");
}

TEST_F(SessionIndexTest, AWatchedTreesFilesAreReadAfterHalfASecondOfQuiet) {
    watch();
    index_->startWatching(root_);
    const auto path = addSession("p/a.jsonl");
    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(watcher_.fire({{path, root_ + "/p/other.txt"}, false}));
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("a").has_value(); }));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    EXPECT_EQ(watcher_.roots(), Paths{root_});
}

TEST_F(SessionIndexTest, EachBatchPutsTheReadingOffForAnotherHalfASecond) {
    using Clock = std::chrono::steady_clock;
    constexpr auto quiet = std::chrono::milliseconds(500);
    watch();
    // True if it was read only after all the batches of a time in which it could have been, twice.
    const auto isPutOff = [&](const std::string& id) {
        const auto path = addSession("p/" + id + ".jsonl");
        const auto start = Clock::now();
        while (Clock::now() - start < 3 * quiet && !index_->lookup(id)) {
            EXPECT_TRUE(watcher_.fire({{path}, false}));
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        const bool isUnread = !index_->lookup(id);
        EXPECT_TRUE(test::comesTrue([&] { return index_->lookup(id).has_value(); }));
        return isUnread;
    };
    // A busy machine may itself leave half a second between two batches, but not every time.
    bool wasPutOff = false;
    for (int attempt = 0; attempt < 8 && !wasPutOff; ++attempt)
        wasPutOff = isPutOff("a" + std::to_string(attempt));
    EXPECT_TRUE(wasPutOff);
}

TEST_F(SessionIndexTest, ARootThatComesAsALinkGivesEachTranscriptOneRow) {
    const auto link = SessionIndex::canonicalize(dir_.path()) + "/link";
    index_->startWatching(link);
    ASSERT_TRUE(test::comesTrue([&] { return watcher_.running() == 1; }));
    EXPECT_EQ(watcher_.roots(), Paths{link});
    const auto path = addSession("p/a.jsonl");
    fs::create_symlink(root_, link);
    ASSERT_TRUE(watcher_.fire({{}, true}));
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("a").has_value(); }));
    const auto other = addSession("p/b.jsonl");
    ASSERT_TRUE(watcher_.fire({{link + "/p/a.jsonl", link + "/p/b.jsonl"}, false}));
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("b").has_value(); }));
    EXPECT_EQ(paths(), (Paths{path, other}));
}

TEST_F(SessionIndexTest, LostEventsAreADemandToLookAtEverything) {
    watch();
    addSession("p/a.jsonl");
    ASSERT_TRUE(watcher_.fire({{}, true}));
    EXPECT_TRUE(test::comesTrue([&] { return index_->lookup("a").has_value(); }));
}

TEST_F(SessionIndexTest, StoppingEndsTheWatchAndWhatWasPending) {
    watch();
    // Outside of the root, so that only the event tells of it.
    watcher_.fire({{addSession("../a.jsonl")}, false});
    index_->stopWatching();
    ASSERT_TRUE(test::comesTrue([&] { return watcher_.running() == 0; }));
    index_->startWatching(root_);
    EXPECT_TRUE(test::comesTrue([&] { return watcher_.running() == 1; }));
    // What comes later has its half second later: by then the first would be there.
    watcher_.fire({{addSession("p/b.jsonl")}, false});
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("b").has_value(); }));
    EXPECT_FALSE(index_->lookup("a"));
}

TEST_F(SessionIndexTest, ADemandToLookAtEverythingTakesThePlaceOfWhatWasPending) {
    watch();
    // Below another root, so that only the event tells of it.
    fs::create_directories(dir_ / "elsewhere");
    const auto pending = addSession("../elsewhere/pending.jsonl");
    watcher_.fire({{pending}, false});
    watcher_.fire({{}, true});
    watcher_.fire({{addSession("p/b.jsonl")}, false});
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("b").has_value(); }));
    pool_.drain();
    const auto told = addSession("p/c.jsonl");
    watcher_.fire({{told}, false});
    ASSERT_TRUE(test::comesTrue([&] { return index_->lookup("c").has_value(); }));
    EXPECT_FALSE(index_->lookup("pending"));
}

TEST_F(SessionIndexTest, AWatchThatCantBeMadeIsSaid) {
    watcher_.refuse();
    testing::internal::CaptureStderr();
    index_->startWatching(root_);
    test::comesTrue([&] { return !watcher_.roots().empty(); });
    // Waits for what the index does.
    index_.reset();
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "[session-index] FSEventStreamCreate failed\n");
}

TEST_F(SessionIndexTest, WhenTheIndexGoesItsWatchHasEnded) {
    index_->startWatching(root_);
    ASSERT_TRUE(test::comesTrue([&] { return watcher_.running() == 1; }));
    index_.reset();
    EXPECT_EQ(watcher_.running(), 0);
}

/// Begins to watch when it is told to.
class SlowWatcher : public TreeWatcher {
  public:
    std::unique_ptr<TreeWatch> watch(const std::string& /*root*/, Callback /*onEvents*/) override {
        begun.signal();
        go.wait();
        return std::make_unique<TreeWatch>();
    }

    Semaphore begun{0};
    Semaphore go{0};
};

TEST_F(SessionIndexTest, ReadersDoNotWaitForAWatchThatTakesItsTimeToBegin) {
    addSession("p/a.jsonl");
    SlowWatcher slow;
    SessionIndex index(loop_, pool_, slow, SessionIndexStore(dir_ / "cache"));
    const auto done = std::make_shared<std::promise<void>>();
    index.reconcile(root_, [done] { done->set_value(); });
    ASSERT_EQ(done->get_future().wait_for(std::chrono::seconds(60)), std::future_status::ready);
    index.startWatching(root_);
    slow.begun.wait();
    auto answers = std::async(std::launch::async, [&] {
        return index.snapshot().size() == 1 && index.lookup("a") &&
               !index.reconcileProgress().inFlight;
    });
    const bool answered = answers.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    slow.go.signal();
    EXPECT_TRUE(answered);
    EXPECT_TRUE(answers.get());
}

/// Asks the index on its own queue, which calls `watch`.
class AskingWatcher : public TreeWatcher {
  public:
    std::unique_ptr<TreeWatch> watch(const std::string& /*root*/, Callback /*onEvents*/) override {
        ask();
        return nullptr;
    }

    std::function<void()> ask;
};

TEST(SessionIndexDeathTest, ReadersOnTheIndexsOwnQueueEndTheProcess) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const test::TempDir dir;
    const auto askOnQueue = [&](const std::function<void(SessionIndex&)>& ask) {
        test::ManualLoop loop;
        WorkerPool pool;
        AskingWatcher watcher;
        SessionIndex index(loop, pool, watcher, SessionIndexStore(dir.path()));
        Semaphore asked{0};
        watcher.ask = [&] {
            ask(index);
            asked.signal();
        };
        index.startWatching(dir.path());
        asked.wait();
    };
    const auto* const rule = "not on its thread: off the index's queue";
    EXPECT_DEATH(askOnQueue([](auto& index) { (void)index.snapshot(); }), rule);
    EXPECT_DEATH(askOnQueue([](auto& index) { (void)index.lookup("a"); }), rule);
    EXPECT_DEATH(askOnQueue([](auto& index) { (void)index.reconcileProgress(); }), rule);
    EXPECT_DEATH(askOnQueue([](auto& index) { index.bootstrap(); }), rule);
}

}  // namespace
}  // namespace sonra
