#include "frame/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// Work that waits until the test opens the gate, counting how many wait at once.
struct Gate {
    std::promise<void> opened;
    std::shared_future<void> open = opened.get_future().share();
    std::atomic<int> waiting = 0;
    std::atomic<int> most = 0;

    void pass() {
        most = std::max(most.load(), ++waiting);
        open.wait();
        --waiting;
    }
    bool comesTo(int count) const {
        const auto deadline = std::chrono::steady_clock::now() + 20s;
        while (waiting != count && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
        return waiting == count;
    }
};

TEST(WorkerPool, RunsEverythingThatIsPosted) {
    WorkerPool pool;
    std::atomic<int> count = 0;
    for (int i = 0; i < 1000; ++i) pool.post([&] { ++count; });
    pool.drain();
    EXPECT_EQ(count, 1000);
}

TEST(WorkerPool, WorksOnSeveralThingsAtOnce) {
    WorkerPool pool(3);
    Gate gate;
    for (int i = 0; i < 3; ++i) pool.post([&] { gate.pass(); });
    EXPECT_TRUE(gate.comesTo(3)) << "blocked work held up other work";
    gate.opened.set_value();
    pool.drain();
}

TEST(WorkerPool, NeverHasMoreThreadsThanItsLimit) {
    WorkerPool pool(2);
    Gate gate;
    std::mutex mutex;
    std::set<std::thread::id> threads;
    for (int i = 0; i < 20; ++i)
        pool.post([&] {
            {
                const std::lock_guard lock(mutex);
                threads.insert(std::this_thread::get_id());
            }
            gate.pass();
        });
    EXPECT_TRUE(gate.comesTo(2));
    gate.opened.set_value();
    pool.drain();
    EXPECT_LE(threads.size(), 2U);
    EXPECT_LE(gate.most, 2);
}

TEST(WorkerPool, NeverRunsWorkInsideThePostingCall) {
    WorkerPool pool;
    std::atomic<bool> elsewhere = false;
    pool.post(
        [&, self = std::this_thread::get_id()] { elsewhere = std::this_thread::get_id() != self; });
    pool.drain();
    EXPECT_TRUE(elsewhere);
}

TEST(WorkerPool, WorkMayPostMoreWork) {
    WorkerPool pool(1);
    std::promise<void> inner;
    pool.post([&] { pool.post([&] { inner.set_value(); }); });
    EXPECT_EQ(inner.get_future().wait_for(20s), std::future_status::ready);
    pool.drain();
}

TEST(WorkerPool, ReusesAParkedThread) {
    WorkerPool pool(8);
    std::set<std::thread::id> threads;
    for (int i = 0; i < 20; ++i) {
        pool.post([&] { threads.insert(std::this_thread::get_id()); });
        pool.drain();
    }
    EXPECT_EQ(threads.size(), 1U);
}

TEST(WorkerPool, FinishesItsWorkWhenItIsDestroyed) {
    Gate gate;
    std::promise<void> last;
    {
        WorkerPool pool(1);
        pool.post([&] { gate.pass(); });
        pool.post([&] { last.set_value(); });
    }
    gate.opened.set_value();
    EXPECT_EQ(last.get_future().wait_for(20s), std::future_status::ready);
}

TEST(WorkerPool, MayBeDestroyedByItsOwnWork) {
    for (int i = 0; i < 200; ++i) {
        auto pool = std::make_unique<WorkerPool>(1);
        auto* raw = pool.get();
        std::promise<void> gone;
        raw->post([&gone, owned = std::make_shared<std::unique_ptr<WorkerPool>>(
                              std::move(pool))]() mutable {
            owned.reset();
            gone.set_value();
        });
        ASSERT_EQ(gone.get_future().wait_for(20s), std::future_status::ready);
    }
}

TEST(WorkerPool, DrainingAnIdlePoolReturns) {
    WorkerPool pool;
    pool.drain();
    SUCCEED();
}

}  // namespace
}  // namespace sonra
