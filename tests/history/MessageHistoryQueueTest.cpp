#include "history/MessageHistoryQueue.h"

#include <filesystem>

#include "HistoryFixture.h"

namespace sonra::test {
namespace {

using MessageHistoryQueueTest = QueueTest;

TEST_F(MessageHistoryQueueTest, TheFirstChunkGoesLiveAndASecondAddsNoId) {
    EXPECT_EQ(cursor(), idle());
    hear("m1");
    EXPECT_EQ(cursor(), live());
    EXPECT_EQ(fired_.size(), 1U);
    hear("m1");
    EXPECT_EQ(queue_.live().ids(), (std::vector<std::string>{"m1"}));
    EXPECT_EQ(queue_.ring().cachedChunks("m1")->size(), 2U);
    EXPECT_EQ(fired_.size(), 1U);
}

TEST_F(MessageHistoryQueueTest, NewMessagesAreCountedWhileInHistory) {
    hear("m1");
    hear("m2");
    queue_.goToPreviousMessage();
    ASSERT_EQ(cursor(), inHistory(1, 2));
    hear("m3");
    EXPECT_EQ(queue_.state().newLiveMessageCount, 1);
    hear("m3");
    EXPECT_EQ(queue_.state().newLiveMessageCount, 1);
    hear("m4");
    EXPECT_EQ(queue_.state().newLiveMessageCount, 2);
    EXPECT_EQ(cursor(), inHistory(1, 2));
    queue_.resumeLive();
    EXPECT_EQ(queue_.state(), (MessageHistoryQueueState{live(), 0}));
}

TEST_F(MessageHistoryQueueTest, NextFromTheFirstHistoryPositionIsLiveAndEmpty) {
    hear("m1");
    hear("m2");
    EXPECT_EQ(messageIds(queue_.goToPreviousMessage()), (std::vector<std::string>{"m1"}));
    EXPECT_TRUE(queue_.goToNextMessage().empty());
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, PreviousClampsAtTheOldest) {
    for (const auto* id : {"a", "b", "c"}) hear(id);
    EXPECT_EQ(messageIds(queue_.goToPreviousMessage()), (std::vector<std::string>{"b"}));
    EXPECT_EQ(messageIds(queue_.goToPreviousMessage()), (std::vector<std::string>{"a"}));
    EXPECT_EQ(messageIds(queue_.goToPreviousMessage()), (std::vector<std::string>{"a"}));
    EXPECT_EQ(cursor(), inHistory(2, 3));
}

TEST_F(MessageHistoryQueueTest, PreviousLateInALiveChunkRestartsIt) {
    hear("a");
    hear("b");
    probe_ = {2.0, 1, 1};
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    EXPECT_EQ(cursor(), live());
    probe_ = {1.5, 1, 1};
    EXPECT_EQ(resolved(queue_.smartPrevious()), "a");
}

TEST_F(MessageHistoryQueueTest, PreviousOnTheSecondChunkStepsBackInTheMessage) {
    hear("a");
    hear("b");
    hear("b");
    probe_ = {0.5, 2, 2};
    const auto outcome = queue_.smartPrevious();
    const auto* replace = outcome.as<SkipOutcome::ReplaceQueue>();
    ASSERT_TRUE(replace);
    EXPECT_EQ(messageIds(replace->chunks), (std::vector<std::string>{"b", "b"}));
    EXPECT_EQ(replace->startIndex, 0);
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, PreviousOnTheFirstChunkResolvesThePreviousMessage) {
    for (const auto* id : {"a", "b", "c"}) hear(id);
    probe_ = {0.5, 1, 2};
    const auto outcome = queue_.smartPrevious();
    const auto* resolve = outcome.as<SkipOutcome::Resolve>();
    ASSERT_TRUE(resolve);
    EXPECT_EQ(resolve->ref, (MessageRef{"b", "s", MessageRef::LiveTail{}}));
    EXPECT_EQ(cursor(), inHistory(1, 3));
}

TEST_F(MessageHistoryQueueTest, NextOnTheLastChunkOfHistoryResolvesTheNewest) {
    for (const auto* id : {"a", "b", "c"}) hear(id);
    queue_.goToPreviousMessage();
    hear("d");
    probe_ = {0.5, 1, 1};
    EXPECT_EQ(resolved(queue_.smartNext()), "d");
    EXPECT_EQ(queue_.state(), (MessageHistoryQueueState{live(), 0}));
}

TEST_F(MessageHistoryQueueTest, NextLiveSkipsAChunkButNotTheLast) {
    hear("a");
    probe_ = {0.5, 1, 2};
    EXPECT_TRUE(queue_.smartNext().as<SkipOutcome::SkipLiveChunk>());
    EXPECT_EQ(cursor(), live());
    probe_ = {0.5, 2, 2};
    EXPECT_TRUE(queue_.smartNext().as<SkipOutcome::Noop>());
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, NextInHistoryGoesThroughTheMessagesChunks) {
    for (const auto* id : {"a", "a", "b", "c"}) hear(id);
    queue_.goToPreviousMessage();
    queue_.goToPreviousMessage();
    ASSERT_EQ(cursor(), inHistory(2, 3));
    probe_ = {0.5, 1, 2};
    const auto outcome = queue_.smartNext();
    const auto* replace = outcome.as<SkipOutcome::ReplaceQueue>();
    ASSERT_TRUE(replace);
    EXPECT_EQ(messageIds(replace->chunks), (std::vector<std::string>{"a", "a"}));
    EXPECT_EQ(replace->startIndex, 1);
    EXPECT_EQ(cursor(), inHistory(2, 3));
}

TEST_F(MessageHistoryQueueTest, IdleAndClearedMovesAreNoops) {
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::Noop>());
    EXPECT_TRUE(queue_.smartNext().as<SkipOutcome::Noop>());
    EXPECT_TRUE(queue_.goToPreviousMessage().empty());
    EXPECT_TRUE(queue_.goToNextMessage().empty());
    hear("a");
    hear("b");
    queue_.goToPreviousMessage();
    queue_.clearAll();
    EXPECT_EQ(queue_.state(), MessageHistoryQueueState());
    EXPECT_EQ(fired_.back(), MessageHistoryQueueState());
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::Noop>());
    EXPECT_TRUE(queue_.smartNext().as<SkipOutcome::Noop>());
    EXPECT_FALSE(queue_.currentMessageRef());
    EXPECT_EQ(queue_.focusedSessionId(), "");
    EXPECT_EQ(queue_.liveTimelineCounts().totalMessages, 0);
}

TEST_F(MessageHistoryQueueTest, PreviousOnALoneLiveMessageRestartsIt) {
    hear("a");
    probe_ = {0, 1, 1};
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, PreviousAtTheOldestRestartsIt) {
    hear("a");
    hear("b");
    EXPECT_EQ(resolved(queue_.smartPrevious()), "a");
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    EXPECT_EQ(cursor(), inHistory(1, 2));
}

TEST_F(MessageHistoryQueueTest, AScrubStaysInTheFocusedSession) {
    hear("a1", "sA");
    hear("b1", "sB");
    hear("b2", "sB");
    hear("a2", "sA");
    EXPECT_EQ(messageIds(queue_.goToPreviousMessage()), (std::vector<std::string>{"a1"}));
    EXPECT_EQ(cursor(), inHistory(1, 2));
    hear("b3", "sB");
    EXPECT_EQ(queue_.state().newLiveMessageCount, 0);
    EXPECT_EQ(queue_.focusedSessionId(), "sA");
    hear("a3", "sA");
    EXPECT_EQ(queue_.state().newLiveMessageCount, 1);
    queue_.goToPreviousMessage();
    EXPECT_EQ(cursor(), inHistory(2, 3));
    EXPECT_EQ(currentId(), "a1");
}

TEST_F(MessageHistoryQueueTest, AScrubOntoAColdMessageResolvesIt) {
    hear("cold");
    for (const auto& id : ids(20)) hear(id);
    for (int i = 0; i < 19; ++i) queue_.smartPrevious();
    EXPECT_EQ(resolved(queue_.smartPrevious()), "cold");
    EXPECT_EQ(cursor(), inHistory(20, 21));
    EXPECT_FALSE(queue_.chunkProvider().cachedChunks("cold"));
    EXPECT_FALSE(queue_.currentMessageRingChunks());
}

TEST_F(MessageHistoryQueueTest, TheRestartRuleHoldsInHistory) {
    for (const auto* id : {"a", "b", "c"}) hear(id);
    queue_.goToPreviousMessage();
    probe_ = {2.0, 1, 1};
    EXPECT_TRUE(queue_.smartPrevious().as<SkipOutcome::RestartChunk>());
    EXPECT_EQ(cursor(), inHistory(1, 3));
}

TEST_F(MessageHistoryQueueTest, ResumeLiveWakesAnIdleQueue) {
    queue_.resumeLive();
    EXPECT_EQ(cursor(), live());
    EXPECT_EQ(fired_.size(), 1U);
}

TEST_F(MessageHistoryQueueTest, AChunkWithoutAMessageIsNamedAfterItsFile) {
    auto nameless = chunk("");
    queue_.recordLive(nameless);
    EXPECT_EQ(queue_.live().ids(), (std::vector<std::string>{"anon-speech-1.wav"}));
    EXPECT_EQ(queue_.currentMessageRingChunks()->size(), 1U);
}

TEST_F(MessageHistoryQueueTest, AMessageWhoseCopyFailsIsOnTheTimelineOnce) {
    LogWatch log;
    log.expect("ring copy failed; message will be cold on replay");
    for (int i = 0; i < 3; ++i) {
        auto gone = chunk("m");
        std::filesystem::remove(gone.url);
        queue_.recordLive(gone);
    }
    EXPECT_EQ(queue_.live().ids(), (std::vector<std::string>{"m"}));
    EXPECT_EQ(currentId(), "m");
    EXPECT_FALSE(queue_.currentMessageRingChunks());
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, AnUnknownFocusStrandsNobody) {
    hear("a", "sA");
    hear("b", "sB");
    queue_.goToPreviousMessage();
    EXPECT_EQ(cursor(), live());
    hear("c", "");
    queue_.goToPreviousMessage();
    EXPECT_EQ(cursor(), inHistory(1, 3));
    EXPECT_EQ(currentId(), "b");
}

// A scrub.

TEST_F(MessageHistoryQueueTest, AScrubGoesByWholeMessagesWhateverHasElapsed) {
    for (const auto& id : ids(5)) hear(id);
    probe_ = {20, 2, 3};
    queue_.scrubTo(3);
    EXPECT_EQ(cursor(), inHistory(3, 5));
    EXPECT_EQ(currentId(), "m1");
    queue_.scrubTo(1);
    EXPECT_EQ(cursor(), inHistory(1, 5));
    queue_.scrubTo(0);
    EXPECT_EQ(cursor(), live());
    queue_.scrubTo(4);
    EXPECT_EQ(cursor(), inHistory(4, 5));
    EXPECT_EQ(currentId(), "m0");
    queue_.scrubTo(-3);
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, AScrubTellsOnlyWhereItEnds) {
    for (const auto& id : ids(6)) hear(id);
    fired_.clear();
    queue_.scrubTo(4);
    ASSERT_EQ(fired_.size(), 1U);
    EXPECT_EQ(fired_[0].cursor, inHistory(4, 6));
    queue_.scrubTo(4);
    EXPECT_EQ(fired_.size(), 1U);
}

TEST_F(MessageHistoryQueueTest, AScrubOfAnIdleQueueDoesNothing) {
    for (const int index : {-1, 0, 1, 10'000}) queue_.scrubTo(index);
    EXPECT_EQ(queue_.state(), MessageHistoryQueueState());
    EXPECT_TRUE(fired_.empty());
}

TEST_F(MessageHistoryQueueTest, AScrubOfALoneMessageStaysLive) {
    hear("a");
    queue_.scrubTo(3);
    EXPECT_EQ(cursor(), live());
}

TEST_F(MessageHistoryQueueTest, AScrubEndsAtItsBudgetAndAtTheOldest) {
    for (const auto& id : ids(400)) hear(id);
    queue_.scrubTo(10'000);
    EXPECT_EQ(cursor(), inHistory(256, 400));
    queue_.scrubTo(10'000);
    EXPECT_EQ(cursor(), inHistory(399, 400));
    EXPECT_EQ(currentId(), "m0");
    queue_.scrubTo(0);
    EXPECT_EQ(cursor(), inHistory(143, 400));
}

/// A queue that was told nothing about its ring.
class DefaultRingTest : public HistoryTest {
  protected:
    ~DefaultRingTest() override { pool_.drain(); }

    /// Without any room on the disk, and given away.
    void hear(const std::string& id, std::uintmax_t bytes) {
        const auto heard = chunk(id, "s", 0);
        std::filesystem::resize_file(heard.url, bytes);
        queue_.recordLive(heard);
    }
    [[nodiscard]] const std::deque<std::string>& kept() const {
        return queue_.ring().messageIdOrder();
    }

    const TempHome home_;
    WorkerPool pool_;
    MessageHistoryQueue queue_{loop_, pool_};
};

TEST_F(DefaultRingTest, LiesInTheSharedDirectory) {
    EXPECT_EQ(queue_.ring().ringDirURL(), home_.path() + "/.claude/tts/history-ring");
    hear("m", 10);
    EXPECT_EQ(readFile(home_.shared() + "/history-ring/m/1.wav").size(), 10U);
}

TEST_F(DefaultRingTest, KeepsTwentyMessages) {
    for (const auto& id : ids(20)) hear(id, 10);
    EXPECT_EQ(kept().size(), 20U);
    EXPECT_EQ(kept().front(), "m0");
    hear("m20", 10);
    EXPECT_EQ(kept().size(), 20U);
    EXPECT_EQ(kept().front(), "m1");
}

TEST_F(DefaultRingTest, KeepsTwoHundredMebibytes) {
    constexpr std::uintmax_t bytes = 209715200;
    hear("large", bytes - 10);
    hear("small", 10);
    EXPECT_EQ(kept(), (std::deque<std::string>{"large", "small"}));
    EXPECT_EQ(queue_.ring().totalBytes(), static_cast<std::int64_t>(bytes));
    hear("last", 1);
    EXPECT_EQ(kept(), (std::deque<std::string>{"small", "last"}));
    queue_.ring().directory()->drain();
}

}  // namespace
}  // namespace sonra::test
