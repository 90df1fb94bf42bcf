#include "frame/LineBatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// A consumer that counts batches and can be held.
struct Desk {
    std::mutex mutex;
    std::string text;
    int batches = 0;
    std::size_t dropped = 0;
    std::shared_future<void> gate;

    LineBatcher::Consumer consumer() {
        return [this](std::string_view batch, std::size_t lost) {
            if (gate.valid()) gate.wait();
            const std::lock_guard lock(mutex);
            text += batch;
            ++batches;
            dropped += lost;
        };
    }
};

TEST(LineBatcher, HandsALoneLineOverWithoutBeingAsked) {
    std::promise<std::string> arrived;
    LineBatcher batcher("test", [&](std::string_view batch, std::size_t) {
        arrived.set_value(std::string(batch));
    });
    batcher.add("lone");
    auto future = arrived.get_future();
    ASSERT_EQ(future.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(future.get(), "lone\n");
}

TEST(LineBatcher, HandsManyLinesOverInFewBatches) {
    Desk desk;
    std::promise<void> open;
    desk.gate = open.get_future().share();
    LineBatcher batcher("test", desk.consumer());
    for (int i = 0; i < 1000; ++i) batcher.add("line");
    open.set_value();
    ASSERT_TRUE(batcher.flush(20s));
    EXPECT_EQ(desk.text.size(), 5000U);
    EXPECT_LE(desk.batches, 3);
}

TEST(LineBatcher, GathersLinesThatKeepComing) {
    constexpr auto rest = std::chrono::microseconds(50);
    Desk desk;
    LineBatcher batcher("test", desk.consumer());
    // Each comes when the one before could have been handed over long ago.
    auto next = std::chrono::steady_clock::now();
    for (int i = 0; i < 2000; ++i, next += rest) {
        while (std::chrono::steady_clock::now() < next) continue;
        batcher.add("line");
    }
    ASSERT_TRUE(batcher.flush(20s));
    EXPECT_EQ(desk.text.size(), 10'000U);
    EXPECT_LE(desk.batches, 200);
}

TEST(LineBatcher, DropsBeyondItsBoundAndCounts) {
    Desk desk;
    std::promise<void> open;
    desk.gate = open.get_future().share();
    LineBatcher batcher("test", desk.consumer());
    const std::string line(1023, 'x');
    constexpr std::size_t sent = 3 * LineBatcher::maxPendingBytes / 1024;
    for (std::size_t i = 0; i < sent; ++i) batcher.add(line);
    open.set_value();
    ASSERT_TRUE(batcher.flush(20s));
    EXPECT_GT(desk.dropped, 0U);
    EXPECT_EQ(desk.text.size() / 1024 + desk.dropped, sent);
}

TEST(LineBatcher, TakesALineLongerThanItsBound) {
    Desk desk;
    LineBatcher batcher("test", desk.consumer());
    batcher.add(std::string(LineBatcher::maxPendingBytes + 1, 'x'));
    ASSERT_TRUE(batcher.flush(20s));
    EXPECT_EQ(desk.text.size(), LineBatcher::maxPendingBytes + 2);
}

TEST(LineBatcher, AFlushGivesUpOnAStuckConsumer) {
    Desk desk;
    std::promise<void> open;
    desk.gate = open.get_future().share();
    LineBatcher batcher("test", desk.consumer());
    batcher.add("line");
    EXPECT_FALSE(batcher.flush(10ms));
    open.set_value();
    EXPECT_TRUE(batcher.flush(20s));
}

TEST(LineBatcher, AFlushInTheMidstOfWritingEndsAndMissesNothing) {
    Desk desk;
    LineBatcher batcher("test", desk.consumer());
    std::atomic<bool> stop = false;
    std::thread other([&] {
        while (!stop) batcher.add("noise");
    });
    for (int i = 0; i < 50; ++i) {
        const std::string mark = "mark" + std::to_string(i) + "\n";
        batcher.add(mark.substr(0, mark.size() - 1));
        EXPECT_TRUE(batcher.flush(20s));
        const std::lock_guard lock(desk.mutex);
        EXPECT_NE(desk.text.find(mark), std::string::npos);
        desk.text.clear();
    }
    stop = true;
    other.join();
    ASSERT_TRUE(batcher.flush(20s));
}

}  // namespace
}  // namespace sonra
