#include "history/HistoryPager.h"

#include <atomic>
#include <thread>

#include "FakePages.h"
#include "HistoryFixture.h"
#include "frame/ThreadAffinity.h"
#include "support/Asleep.h"

namespace sonra::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 20ms;

class HistoryPagerTest : public HistoryTest {
  protected:
    HistoryPagerTest() { transcript_->hold(); }
    ~HistoryPagerTest() override { transcript_->letThrough(1000); }

    std::unique_ptr<HistoryPager> open() {
        return std::make_unique<HistoryPager>(
            loop_, [t = transcript_] { return t->opener()("", HistorySource::claudeCode); }, 16, 4,
            [this] { ++arrivals_; });
    }

    const std::shared_ptr<FakeTranscript> transcript_ = std::make_shared<FakeTranscript>(ids(100));
    int arrivals_ = 0;
};

TEST_F(HistoryPagerTest, WhatArrivesAfterItsEndIsDropped) {
    auto pager = open();
    ASSERT_TRUE(transcript_->awaitReads(1));
    transcript_->letThrough();
    ASSERT_TRUE(transcript_->awaitReads(2));
    // One page is announced and not told yet, the next is in the reading.
    bool answered = false;
    pager->lookUp("m0", [&](const std::optional<std::string>& text) {
        answered = true;
        EXPECT_FALSE(text);
    });
    pager = nullptr;
    loop_.runPosted();
    EXPECT_EQ(arrivals_, 0);
    EXPECT_TRUE(answered);
    transcript_->letThrough();
    // Until nobody else has the transcript.
    ASSERT_TRUE(loop_.runUntil([this] { return transcript_.use_count() == 1; }));
    loop_.runPosted();
    EXPECT_EQ(arrivals_, 0);
    EXPECT_EQ(transcript_->reads(), 2);
}

TEST_F(HistoryPagerTest, ReadsAheadOnlySoFar) {
    transcript_->release();
    const auto pager = open();
    ASSERT_TRUE(loop_.runUntil([this] { return arrivals_ == 4; }));
    EXPECT_EQ(transcript_->reads(), 4);
    ASSERT_TRUE(pager->next(HistoryPager::Deadline::max()));
    ASSERT_TRUE(loop_.runUntil([this] { return arrivals_ == 5; }));
    EXPECT_EQ(transcript_->reads(), 5);
}

/// A loop on which other threads may be made to wait until what they post has run and gone.
class WaitedForLoop : public ManualLoop {
  public:
    void post(std::function<void()> work) override {
        const bool waits = isWaitedFor && !onMainThread();
        ManualLoop::post(std::move(work));
        if (waits) ran.wait();
    }
    std::atomic<bool> isWaitedFor = false;
    Semaphore ran;
};

TEST_F(HistoryPagerTest, WhatALookUpCallsEndsWhereItIsCalled) {
    WaitedForLoop loop;
    transcript_->release();
    HistoryPager pager(
        loop, [t = transcript_] { return t->opener()("", HistorySource::claudeCode); }, 16, 4,
        [this] { ++arrivals_; });
    ASSERT_TRUE(loop.runUntil([this] { return arrivals_ == 4; }));
    transcript_->append("late");
    loop.isWaitedFor = true;
    std::atomic<std::thread::id> endedOn;
    bool answered = false;
    pager.lookUp("late", [&answered, held = std::shared_ptr<void>(nullptr, [&endedOn](void*) {
                                         endedOn = std::this_thread::get_id();
                                     })](const auto& text) { answered = text == "body of late"; });
    EXPECT_TRUE(loop.runUntil([&] { return answered; }));
    loop.isWaitedFor = false;
    loop.ran.signal();
    EXPECT_TRUE(loop.runUntil([&] { return endedOn.load() != std::thread::id(); }));
    EXPECT_EQ(endedOn.load(), std::this_thread::get_id());
}

TEST_F(HistoryPagerTest, ADeadlineThatHasPassedIsNoWaitInVain) {
    const auto pager = open();
    ASSERT_TRUE(transcript_->awaitReads(1));
    EXPECT_FALSE(pager->next(HistoryPager::Deadline::min()));
    const auto deadline = Clock::now() + patience;
    EXPECT_FALSE(pager->next(deadline));
    EXPECT_GE(Clock::now(), deadline);
    // That was one.
    EXPECT_LE(Asleep::during([&] { pager->next(Clock::now() + 10s); }), 5s);
}

}  // namespace
}  // namespace sonra::test
