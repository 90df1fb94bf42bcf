#include "linux/QtMainLoop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "frame/ThreadAffinity.h"
#include "frame/UniqueFd.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using Clock = MainLoop::Clock;

class QtMainLoopTest : public testing::Test {
  protected:
    /// Runs the application's events until `done` holds; false after 20 s.
    bool runUntil(const std::function<bool()>& done) {
        const auto deadline = Clock::now() + 20s;
        while (!done() && Clock::now() < deadline)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        return done();
    }
    void runFor(Clock::duration time) {
        const auto end = Clock::now() + time;
        while (Clock::now() < end) QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    std::function<void()> note(int number) {
        return [this, number] { order.push_back(number); };
    }

    int argumentCount = 1;
    char programName[5] = "test";
    char* arguments[2] = {programName, nullptr};
    QCoreApplication application{argumentCount, arguments};
    QtMainLoop loop;
    std::vector<int> order;
};

TEST_F(QtMainLoopTest, RunsPostsInOrderAndNeverInsideTheCaller) {
    loop.post([this] {
        loop.post(note(3));
        order.push_back(1);
    });
    loop.post(note(2));
    EXPECT_TRUE(order.empty());
    ASSERT_TRUE(runUntil([&] { return order.size() == 3; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST_F(QtMainLoopTest, KeepsTheOrderOfEachPostingThread) {
    constexpr int each = 5'000;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int thread = 0; thread < 3; ++thread)
        threads.emplace_back([this, thread] {
            for (int i = 0; i < each; ++i) loop.post(note(thread * each + i));
        });
    ASSERT_TRUE(runUntil([&] { return order.size() == 3 * each; }));
    for (auto& thread : threads) thread.join();
    std::vector<int> next{0, each, 2 * each};
    for (const int number : order)
        EXPECT_EQ(number, next[static_cast<std::size_t>(number / each)]++);
}

TEST_F(QtMainLoopTest, WakesForAPostFromAnotherThread) {
    QEventLoop waiting;
    std::thread poster([&] {
        std::this_thread::sleep_for(100ms);
        loop.post([&] { waiting.quit(); });
    });
    waiting.exec();
    poster.join();
}

TEST_F(QtMainLoopTest, InnerLoopGoesOnWithTheRest) {
    loop.post([&] {
        order.push_back(1);
        EXPECT_TRUE(runUntil([&] { return order.size() == 3; }));
        order.push_back(4);
    });
    loop.post(note(2));
    loop.post(note(3));
    ASSERT_TRUE(runUntil([&] { return order.size() == 4; }));
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3, 4}));
}

TEST_F(QtMainLoopTest, EndlessPostsLeaveRoomForTimersAndWatches) {
    std::function<void()> again = [&] { loop.post(again); };
    loop.post(again);
    const UniqueFd ready(eventfd(1, EFD_CLOEXEC));
    bool fired = false;
    bool seen = false;
    const auto timer = loop.after(20ms, [&] { fired = true; });
    const auto watch = loop.watch(ready.get(), MainLoop::Interest::readable, [&] { seen = true; });
    EXPECT_TRUE(runUntil([&] { return fired && seen; }));
    again = [] {};
    runFor(10ms);
}

TEST_F(QtMainLoopTest, TimerFiresOnceAndNeverEarly) {
    for (const auto delay : {Clock::duration(0), Clock::duration(1500us), Clock::duration(37ms),
                             Clock::duration(1130ms)}) {
        std::vector<Clock::time_point> fired;
        const auto armed = loop.now();
        const auto timer = loop.after(delay, [&] { fired.push_back(loop.now()); });
        ASSERT_TRUE(runUntil([&] { return !fired.empty(); }));
        EXPECT_GE(fired[0] - armed, delay);
        runFor(60ms);
        EXPECT_EQ(fired.size(), 1U);
    }
}

TEST_F(QtMainLoopTest, RepeatingTimerKeepsItsScheduleWithoutMakingUp) {
    std::vector<Clock::time_point> fired;
    const auto armed = loop.now();
    const auto timer = loop.every(20ms, [&] {
        fired.push_back(loop.now());
        if (fired.size() == 3) std::this_thread::sleep_for(110ms);  // misses five
    });
    ASSERT_TRUE(runUntil([&] { return fired.size() >= 6; }));
    for (std::size_t i = 0; i < 3; ++i) EXPECT_GE(fired[i] - armed, 20ms * static_cast<int>(i + 1));
    EXPECT_GE(fired[3] - fired[2], 110ms);
    // However late the one between them is noted.
    EXPECT_GE(fired[4] - fired[2], 130ms);
}

TEST_F(QtMainLoopTest, CancelledTimerDoesNotRun) {
    auto cancelled = loop.after(10ms, note(1));
    auto replaced = loop.after(10ms, note(2));
    { const auto dropped = loop.after(10ms, note(3)); }
    cancelled.cancel();
    replaced = loop.after(20ms, note(4));
    ASSERT_TRUE(runUntil([&] { return !order.empty(); }));
    runFor(60ms);
    EXPECT_EQ(order, std::vector<int>{4});
    EXPECT_FALSE(cancelled);
    EXPECT_TRUE(replaced);
}

TEST_F(QtMainLoopTest, TimerMayBeCancelledAndReplacedInItsOwnCallback) {
    std::optional<LoopHandle> handle;
    int ticks = 0;
    const auto kept = std::make_shared<int>(7);
    handle = loop.every(5ms, [&, kept] {
        ++ticks;
        handle.reset();
        EXPECT_EQ(*kept, 7);  // the callback is still whole
        handle = loop.after(5ms, note(1));
    });
    ASSERT_TRUE(runUntil([&] { return order.size() == 1; }));
    runFor(30ms);
    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(kept.use_count(), 1);
}

TEST_F(QtMainLoopTest, TimersDueTogetherMayCancelEachOther) {
    LoopHandle first;
    LoopHandle second;
    first = loop.after(10ms, [&] {
        second.cancel();
        order.push_back(1);
    });
    second = loop.after(10ms, [&] {
        first.cancel();
        order.push_back(2);
    });
    std::this_thread::sleep_for(20ms);
    ASSERT_TRUE(runUntil([&] { return !order.empty(); }));
    runFor(50ms);
    EXPECT_EQ(order.size(), 1U);
}

TEST_F(QtMainLoopTest, WatchIsLevelTriggered) {
    const UniqueFd event(eventfd(2, EFD_CLOEXEC | EFD_SEMAPHORE));
    int reads = 0;
    const auto watch = loop.watch(event.get(), MainLoop::Interest::readable, [&] {
        eventfd_t value = 0;
        eventfd_read(event.get(), &value);
        ++reads;
    });
    ASSERT_TRUE(runUntil([&] { return reads == 2; }));
    runFor(30ms);
    EXPECT_EQ(reads, 2);
}

TEST_F(QtMainLoopTest, WatchReportsRoomToWriteAndTheOtherEndClosing) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const UniqueFd reading(ends[0]);
    UniqueFd writing(ends[1]);
    bool writable = false;
    bool closed = false;
    auto write = loop.watch(writing.get(), MainLoop::Interest::writable, [&] { writable = true; });
    auto read = loop.watch(reading.get(), MainLoop::Interest::readable, [&] { closed = true; });
    ASSERT_TRUE(runUntil([&] { return writable; }));
    write.cancel();
    EXPECT_FALSE(closed);
    writing.reset();
    EXPECT_TRUE(runUntil([&] { return closed; }));
}

TEST_F(QtMainLoopTest, WatchMayBeCancelledInItsOwnCallback) {
    const UniqueFd event(eventfd(1, EFD_CLOEXEC));
    LoopHandle watch;
    watch = loop.watch(event.get(), MainLoop::Interest::readable, [&] {
        watch.cancel();
        order.push_back(1);
    });
    ASSERT_TRUE(runUntil([&] { return !order.empty(); }));
    runFor(30ms);
    EXPECT_EQ(order.size(), 1U);
}

TEST_F(QtMainLoopTest, WatchOnABadDescriptorNeverFires) {
    const auto watch = loop.watch(-1, MainLoop::Interest::readable, note(1));
    runFor(30ms);
    EXPECT_TRUE(order.empty());
}

TEST_F(QtMainLoopTest, DoesNotWakeUpWithoutWork) {
    loop.post(note(1));
    runUntil([&] { return !order.empty(); });
    runFor(50ms);
    QEventLoop waiting;
    const auto end = loop.after(1s, [&] { waiting.quit(); });
    rusage before{};
    getrusage(RUSAGE_THREAD, &before);
    waiting.exec();
    rusage after{};
    getrusage(RUSAGE_THREAD, &after);
    EXPECT_LE(after.ru_nvcsw - before.ru_nvcsw, 3);
}

TEST_F(QtMainLoopTest, DeclaresItsThreadToBeTheMainThread) {
    EXPECT_TRUE(onMainThread());
    bool elsewhere = true;
    std::thread([&] { elsewhere = onMainThread(); }).join();
    EXPECT_FALSE(elsewhere);
}

}  // namespace
}  // namespace sonra
