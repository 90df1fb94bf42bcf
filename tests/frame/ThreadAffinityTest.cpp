#include "frame/ThreadAffinity.h"

#include "frame/SerialQueue.h"
#include "support/ManualLoop.h"

#include <gtest/gtest.h>

#include <thread>

namespace sonra {
namespace {

/// An object of the main thread, as its users see it.
struct MainThreadObject {
    static void act() { SONRA_ASSERT_MAIN_THREAD(); }
};

struct QueueObject {
    SerialQueue queue{"test"};
    void act() { SONRA_ASSERT_ON(queue); }
};

class ThreadAffinityDeathTest : public testing::Test {
  protected:
    // The child of a death test is started anew, because threads of other tests may live in this
    // process.
    ThreadAffinityDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST(ThreadAffinity, TheThreadOfTheLoopIsTheMainThread) {
    const test::ManualLoop loop;
    EXPECT_TRUE(onMainThread());
    MainThreadObject::act();
    std::thread([] { EXPECT_FALSE(onMainThread()); }).join();
}

TEST(ThreadAffinity, TheOwnersThreadMayAct) {
    QueueObject object;
    object.queue.sync([&] { object.act(); });
}

TEST_F(ThreadAffinityDeathTest, AnotherThreadThanTheMainOneEndsTheProcess) {
    EXPECT_DEATH(
        {
            declareMainThread();
            std::thread([] { MainThreadObject::act(); }).join();
        },
        "not on its thread: main thread");
}

TEST_F(ThreadAffinityDeathTest, AnotherThreadThanTheQueuesEndsTheProcess) {
    EXPECT_DEATH(QueueObject().act(), "ThreadAffinityTest.cpp:[0-9]+: not on its thread: queue");
}

}  // namespace
}  // namespace sonra
