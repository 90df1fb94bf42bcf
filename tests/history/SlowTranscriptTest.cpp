// The history queue over a transcript whose pages come late, or never.
#include <algorithm>

#include "FakePages.h"
#include "HistoryFixture.h"
#include "history/MessageHistoryQueue.h"
#include "support/Asleep.h"

namespace sonra::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto pagePatience = MessageHistoryQueue::patience;
/// Two waits would take twice the patience.
constexpr auto oneWait = pagePatience * 3 / 2;
/// None takes nothing, but for a moment in which the reading thread holds a mutex while a busy
/// machine has put it aside.
constexpr auto noWait = pagePatience * 9 / 10;

/// With a transcript whose reading the test holds up.
class SlowTranscriptTest : public QueueTest {
  protected:
    explicit SlowTranscriptTest(int messages = 100)
        : SlowTranscriptTest(std::make_shared<FakeTranscript>(ids(messages))) {}
    explicit SlowTranscriptTest(const std::shared_ptr<FakeTranscript>& transcript)
        : QueueTest(transcript->opener()), transcript_(transcript) {}
    ~SlowTranscriptTest() override { transcript_->letThrough(1000); }

    /// Attaches it, with no count of its own, and waits until its first page is being read.
    void attachSlow() {
        const int before = transcript_->reads();
        transcript_->hold();
        queue_.setSession("", HistorySource::opencode);
        ASSERT_TRUE(transcript_->awaitReads(before + 1));
    }
    /// Lets a page come, and leaves the next one in the reading. The loop isn't told yet.
    void bringPage() {
        const int before = transcript_->reads();
        transcript_->letThrough();
        ASSERT_TRUE(transcript_->awaitReads(before + 1));
    }
    /// The body waits for a page in vain, once.
    template <typename Body>
    void expectOneWait(Body body) {
        const auto start = Clock::now();
        EXPECT_LE(Asleep::during(body), oneWait);
        EXPECT_GE(Clock::now() - start, pagePatience);
    }
    template <typename Body>
    void expectNoWait(Body body) {
        EXPECT_LE(Asleep::during(body), noWait);
    }

    const std::shared_ptr<FakeTranscript> transcript_;
};

TEST_F(SlowTranscriptTest, AMoveGoesOnWithoutAPageThatDoesNotCome) {
    hear("x");
    hear("y");
    attachSlow();
    expectOneWait([this] { EXPECT_EQ(resolved(queue_.smartPrevious()), "x"); });
    EXPECT_EQ(cursor(), inHistory(1, 2));
    expectNoWait([this] { queue_.scrubTo(10'000); });
    EXPECT_EQ(cursor(), inHistory(1, 2));
    loop_.runPosted();
    expectNoWait([this] { EXPECT_FALSE(queue_.historyText("unknown")); });
}

TEST_F(SlowTranscriptTest, ALookUpWaitsNoLongerThanAMove) {
    attachSlow();
    expectOneWait([this] { EXPECT_FALSE(queue_.historyText("unknown")); });
    loop_.runPosted();
    expectNoWait([this] { EXPECT_FALSE(queue_.historyText("m99")); });
}

TEST_F(SlowTranscriptTest, ADiskThatHangsCostsOneWait) {
    hear("x");
    hear("y");
    attachSlow();
    expectOneWait([this] { queue_.smartPrevious(); });
    expectNoWait([this] {
        for (int i = 0; i < 200; ++i) {
            queue_.smartPrevious();
            loop_.advance(20ms);
        }
    });
    EXPECT_EQ(transcript_->reads(), 1);
}

TEST_F(SlowTranscriptTest, EveryPageThatCameMayBeWaitedForAgain) {
    hear("x");
    attachSlow();
    expectOneWait([this] { queue_.goToPreviousMessage(); });
    bringPage();
    loop_.runPosted();
    expectNoWait([this] { queue_.goToPreviousMessage(); });
    EXPECT_EQ(currentId(), "m99");
    queue_.scrubTo(10);
    expectOneWait([this] { queue_.scrubTo(16); });
    EXPECT_EQ(currentId(), "m84");
}

/// The second page is asked for in the same turn of the loop: nothing of its patience is left.
TEST_F(SlowTranscriptTest, OneTurnOfTheLoopWaitsNoLongerThanThePatience) {
    hear("x");
    hear("y");
    attachSlow();
    expectOneWait([this] { queue_.smartPrevious(); });
    bringPage();
    expectNoWait([this] { queue_.scrubTo(60); });
    EXPECT_EQ(currentId(), "m84");
    // It hasn't waited in vain either: the next turn still does.
    loop_.runPosted();
    expectOneWait([this] { queue_.scrubTo(60); });
}

TEST_F(SlowTranscriptTest, APageThatComesLateIsMergedAndTold) {
    hear("x");
    hear("y");
    attachSlow();
    queue_.smartPrevious();
    fired_.clear();
    bringPage();
    expectNoWait([this] { loop_.runPosted(); });
    EXPECT_EQ(fired_.size(), 1U);
    EXPECT_EQ(cursor(), inHistory(1, 2));
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 18);
    EXPECT_EQ(resolved(queue_.smartPrevious()), "m99");
    EXPECT_EQ(resolved(queue_.smartPrevious()), "m98");
}

/// All of the page was heard, so that the next one is wanted as well. Nobody asked for it just now.
TEST_F(SlowTranscriptTest, ALateArrivalNeverWaitsForTheNextPage) {
    for (int i = 84; i < 100; ++i) hear("m" + std::to_string(i));
    attachSlow();
    expectOneWait([this] { queue_.scrubTo(40); });
    EXPECT_EQ(cursor(), inHistory(15, 16));
    fired_.clear();
    bringPage();
    expectNoWait([this] { loop_.runPosted(); });
    EXPECT_TRUE(fired_.empty());
    // A wait in vain would have been the last one for this page.
    expectOneWait([this] { queue_.scrubTo(40); });
    // The page after it is still merged as soon as it is there.
    fired_.clear();
    bringPage();
    expectNoWait([this] { loop_.runPosted(); });
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 32);
    EXPECT_EQ(fired_.size(), 1U);
}

TEST_F(SlowTranscriptTest, PagesOfAnEarlierSessionAreDropped) {
    hear("x");
    hear("y");
    attachSlow();
    queue_.smartPrevious();
    bringPage();
    loop_.runPosted();
    queue_.smartPrevious();
    ASSERT_EQ(queue_.liveTimelineCounts().totalMessages, 18);
    // One page merged, one taken in and not announced, one in the reading.
    bringPage();
    queue_.clearAll();
    hear("z");
    fired_.clear();
    transcript_->release();
    loop_.runPosted();
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    queue_.scrubTo(10);
    EXPECT_EQ(currentId(), "z");
    EXPECT_EQ(cursor(), live());
    EXPECT_TRUE(fired_.empty());
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 1);
    EXPECT_FALSE(queue_.historyText("m99"));
}

TEST_F(SlowTranscriptTest, PagesOfAnEarlierSessionAreNotTheNextOnes) {
    hear("x");
    attachSlow();
    queue_.smartPrevious();
    bringPage();
    queue_.setSession(directory_ / "other", HistorySource::opencode);
    ASSERT_TRUE(transcript_->awaitReads(3));
    loop_.runPosted();
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 1);
    expectOneWait([this] { EXPECT_FALSE(queue_.historyText("m99")); });
}

TEST_F(SlowTranscriptTest, ACursorBeyondWhatIsLoadedPointsAtTheOldestKnown) {
    hear("x");
    hear("y");
    attachSlow();
    bringPage();
    queue_.scrubTo(60);
    EXPECT_EQ(std::get<State::History>(cursor()).messageIndex, 17);
    EXPECT_EQ(currentId(), "m84");
    transcript_->release();
    queue_.scrubTo(60);
    ASSERT_TRUE(loop_.runUntil([this] {
        queue_.scrubTo(60);
        return currentId() == "m41";
    }));
    EXPECT_EQ(std::get<State::History>(cursor()).messageIndex, 60);
}

TEST_F(SlowTranscriptTest, TheNewSessionDoesNotWaitForTheOldOnesDisk) {
    hear("x");
    attachSlow();
    attachSlow();
    EXPECT_EQ(transcript_->reads(), 2);
}

/// A minute of skipping, much faster than the pages come.
class LongSlowTranscriptTest : public SlowTranscriptTest {
  protected:
    static constexpr int messages = 1600;
    LongSlowTranscriptTest() : SlowTranscriptTest(messages) {}

    /// Two messages that were heard last, then the transcript's; of those not known yet, the
    /// oldest that is.
    static std::string idAt(int index, int known) {
        const int place = std::min(index, known - 1);
        if (place < 2) return place == 0 ? "y" : "x";
        return "m" + std::to_string(messages + 1 - place);
    }
    void attachCounted() {
        transcript_->hold();
        queue_.setSession(writeTranscript(ids(messages)), HistorySource::claudeCode);
        ASSERT_TRUE(loop_.runUntil([this] { return queue_.stableTotalKnown().has_value(); }));
        ASSERT_TRUE(transcript_->awaitReads(1));
    }
};

TEST_F(LongSlowTranscriptTest, ASkipEveryTwentyMillisecondsOverColdMessages) {
    constexpr int steps = 3000;
    constexpr int pageEvery = 32;
    // Far fewer than there are pages, or steps between two of them.
    constexpr int heldUpByTheMachine = 10;
    int heldUp = 0;
    hear("x");
    hear("y");
    attachCounted();
    int index = 0;
    int known = 2;
    for (int step = 0; step < steps; ++step) {
        const bool back = step < steps / 2;
        const bool waits = back && step % pageEvery == 0;
        index += back ? 1 : -1;
        SkipOutcome outcome;
        const auto start = Clock::now();
        const auto slept =
            Asleep::during([&] { outcome = back ? queue_.smartPrevious() : queue_.smartNext(); });
        if (waits) {
            EXPECT_GE(Clock::now() - start, pagePatience) << "step " << step;
        }
        if (slept > (waits ? oneWait : noWait)) ++heldUp;
        ASSERT_LE(heldUp, heldUpByTheMachine) << "step " << step;
        ASSERT_EQ(resolved(outcome), idAt(index, known)) << "step " << step;
        ASSERT_EQ(cursor(), index > 0 ? inHistory(index, messages + 2) : live()) << "step " << step;
        if (back && step % pageEvery == pageEvery - 1) {
            ASSERT_NO_FATAL_FAILURE(bringPage());
            known += MessageHistoryQueue::pageBatchSize;
        }
        loop_.advance(20ms);
    }
    EXPECT_EQ(index, 0);
    EXPECT_GT(known, steps / 5);
    EXPECT_EQ(queue_.ring().messageIdOrder().size(), 2U);
}

}  // namespace
}  // namespace sonra::test
