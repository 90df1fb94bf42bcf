#include "frame/SerialQueue.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/ThreadNames.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

TEST(SerialQueue, RunsWorkInTheOrderOfItsPosting) {
    SerialQueue queue("test");
    std::vector<int> order;
    order.reserve(1000);
    for (int i = 0; i < 1000; ++i) queue.post([&order, i] { order.push_back(i); });
    queue.sync([] {});
    ASSERT_EQ(order.size(), 1000U);
    for (int i = 0; i < 1000; ++i) EXPECT_EQ(order[static_cast<std::size_t>(i)], i);
}

TEST(SerialQueue, KeepsTheOrderOfEachOfManyThreads) {
    SerialQueue queue("test");
    std::array<int, 4> next{};
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    threads.reserve(next.size());
    for (std::size_t t = 0; t < next.size(); ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i)
                queue.post([&, t, i] {
                    if (next[t]++ != i) ++wrong;
                });
        });
    for (auto& thread : threads) thread.join();
    queue.sync([] {});
    EXPECT_EQ(next, (std::array<int, 4>{500, 500, 500, 500}));
    EXPECT_EQ(wrong, 0);
}

TEST(SerialQueue, NeverRunsWorkInsideThePostingCall) {
    SerialQueue queue("test");
    std::vector<int> order;
    queue.sync([&] {
        queue.post([&] { order.push_back(2); });
        order.push_back(1);
    });
    queue.sync([] {});
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(SerialQueue, SyncReturnsWhenTheWorkIsDone) {
    SerialQueue queue("test");
    bool done = false;
    queue.sync([&] { done = true; });
    EXPECT_TRUE(done);
}

TEST(SerialQueue, KnowsItsOwnThread) {
    SerialQueue queue("test");
    SerialQueue other("other");
    EXPECT_FALSE(queue.isCurrent());
    queue.sync([&] {
        EXPECT_TRUE(queue.isCurrent());
        EXPECT_FALSE(other.isCurrent());
    });
}

TEST(SerialQueue, NamesItsThread) {
    SerialQueue queue("sonra.narration.12345678");
    EXPECT_EQ(queue.name(), "sonra.narration.12345678");
    queue.sync([] {
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof name);
        EXPECT_STREQ(name, "sonra.narration");
    });
}

TEST(SerialQueue, HasAThreadOfThatNameAtOnce) {
    for (int i = 0; i < 100; ++i) {
        const auto name = "early" + std::to_string(i);
        const SerialQueue queue(name);
        ASSERT_EQ(test::threadNames().count(name), 1U);
    }
}

TEST(SerialQueue, FinishesItsWorkWhenItIsDestroyed) {
    std::promise<void> second;
    auto future = second.get_future();
    auto queue =
        std::make_shared<std::unique_ptr<SerialQueue>>(std::make_unique<SerialQueue>("test"));
    std::promise<void> gate;
    auto open = gate.get_future().share();
    (*queue)->post([open] { open.wait(); });
    (*queue)->post([&second] { second.set_value(); });
    queue->reset();
    gate.set_value();
    EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
}

TEST(SerialQueue, MayBeDestroyedByItsOwnWork) {
    std::promise<void> after;
    auto future = after.get_future();
    auto queue = std::make_unique<SerialQueue>("test");
    auto* raw = queue.get();
    raw->post([owned = std::make_shared<std::unique_ptr<SerialQueue>>(std::move(queue)),
               &after]() mutable {
        (*owned)->post([&after] { after.set_value(); });
        owned.reset();
    });
    EXPECT_EQ(future.wait_for(20s), std::future_status::ready);
}

TEST(SerialQueue, ReleasesWhatItsWorkHeld) {
    SerialQueue queue("test");
    const auto held = std::make_shared<int>(1);
    queue.post([held] {});
    queue.sync([] {});
    queue.sync([] {});
    EXPECT_EQ(held.use_count(), 1);
}

TEST(SerialQueue, ATimerRunsOnTheQueueAndNotBeforeItsTime) {
    SerialQueue queue("test");
    std::promise<bool> fired;
    const auto start = std::chrono::steady_clock::now();
    queue.after(20ms, [&] { fired.set_value(queue.isCurrent()); });
    auto future = fired.get_future();
    ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
    EXPECT_TRUE(future.get());
    EXPECT_GE(std::chrono::steady_clock::now() - start, 20ms);
}

TEST(SerialQueue, TimersRunInTheOrderOfTheirTimes) {
    SerialQueue queue("test");
    std::vector<int> order;
    std::promise<void> last;
    // Far enough apart for a machine that puts the thread aside between two of them.
    queue.post([&] {
        queue.after(20ms, [&] {
            order.push_back(3);
            last.set_value();
        });
        queue.after(-20s, [&] { order.push_back(2); });
        queue.after(-40s, [&] { order.push_back(1); });
    });
    ASSERT_EQ(last.get_future().wait_for(20s), std::future_status::ready);
    queue.sync([&] { EXPECT_EQ(order, (std::vector<int>{1, 2, 3})); });
}

TEST(SerialQueue, ATimerThatIsSetLaterMayComeFirst) {
    SerialQueue queue("test");
    std::promise<void> fired;
    queue.after(1h, [] {});
    queue.after(1ms, [&] { fired.set_value(); });
    EXPECT_EQ(fired.get_future().wait_for(20s), std::future_status::ready);
}

TEST(SerialQueue, ATimerCancelledOnTheQueueNeverRuns) {
    SerialQueue queue("test");
    std::promise<void> later;
    bool ran = false;
    queue.sync([&] {
        auto timer = queue.after(0ms, [&] { ran = true; });
        EXPECT_TRUE(static_cast<bool>(timer));
        timer.cancel();
        EXPECT_FALSE(static_cast<bool>(timer));
        queue.after(5ms, [&] { later.set_value(); });
    });
    ASSERT_EQ(later.get_future().wait_for(20s), std::future_status::ready);
    queue.sync([&] { EXPECT_FALSE(ran); });
}

TEST(SerialQueue, DroppingATimersHandleDoesNotCancel) {
    SerialQueue queue("test");
    std::promise<void> fired;
    static_cast<void>(queue.after(1ms, [&] { fired.set_value(); }));
    EXPECT_EQ(fired.get_future().wait_for(20s), std::future_status::ready);
}

TEST(SerialQueue, ATimerThatHasFiredIsFalse) {
    SerialQueue queue("test");
    std::promise<void> fired;
    auto timer = queue.after(0ms, [&] { fired.set_value(); });
    ASSERT_EQ(fired.get_future().wait_for(20s), std::future_status::ready);
    queue.sync([] {});
    queue.sync([&] { EXPECT_FALSE(static_cast<bool>(timer)); });
}

}  // namespace
}  // namespace sonra
