#include "playback/AudioQueue.h"

#include <gtest/gtest.h>

#include <limits>

#include "playback/AudioQueueFixture.h"
#include "support/LogWatch.h"

namespace sonra::test {
namespace {

class AudioQueueTest : public AudioQueueFixture {};

TEST_F(AudioQueueTest, PlaysChunksOneAfterTheOther) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(queue_.queuedCount(), 1U);
    loop_.advance(2s);
    EXPECT_EQ(loaded(), "b");
    loop_.advance(2s);
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "start b 2/2", "end", "idle"}));
    EXPECT_EQ(players_.calls(), (Calls{"open a.wav", "volume a.wav", "play a.wav", "drop a.wav",
                                       "open b.wav", "volume b.wav", "play b.wav", "drop b.wav"}));
}

TEST_F(AudioQueueTest, ProgressAndSpectrumComeEachTickAndEndInZeros) {
    players_.setDuration(0.3);
    queue_.enqueue(chunk("a"));
    loop_.advance(300ms);
    ASSERT_EQ(progress_.size(), 3U);
    EXPECT_NEAR(progress_[0].first, 0.08, 1e-9);
    EXPECT_NEAR(progress_[2].first, 0.24, 1e-9);
    EXPECT_EQ(progress_[2].second, 0.3);
    ASSERT_EQ(levels_.size(), 4U);
    EXPECT_EQ(levels_.back(), AudioQueue::Bands(32, 0.0F));
    EXPECT_EQ(peaks_, AudioQueue::Bands(32, 0.0F));
    loop_.advance(5s);
    EXPECT_EQ(progress_.size(), 3U);
    EXPECT_EQ(loop_.armedTimers(), 0U);
}

TEST_F(AudioQueueTest, LastCallsOfAChunkAreZeroSpectrumThenIdle) {
    Calls order;
    auto callbacks = recording();
    callbacks.onChunkEnd = [&] { order.emplace_back("end"); };
    callbacks.onSpectrum = [&](const auto&, const auto&) { order.emplace_back("spectrum"); };
    callbacks.onIdle = [&] { order.emplace_back("idle"); };
    players_.setDuration(0.01);
    queue_.setCallbacks(callbacks);
    queue_.enqueue(chunk("a"));
    loop_.advance(10ms);
    EXPECT_EQ(order, (Calls{"end", "spectrum", "idle"}));
}

TEST_F(AudioQueueTest, ListenersOfAStartFindAQueueThatIsSetUp) {
    auto callbacks = recording();
    callbacks.onChunkStart = [this](const AudioChunk& started, int index, int total) {
        EXPECT_TRUE(queue_.isCurrentlyPlaying());
        EXPECT_EQ(queue_.currentChunk(), started);
        EXPECT_EQ(queue_.current()->duration(), 2);
        EXPECT_EQ(index, 1);
        EXPECT_EQ(total, 1);
        EXPECT_EQ(snapshot()["state"], "playing");
        EXPECT_EQ(center_.info()->title, "Claude");
        takeEvents();
        events_.emplace_back("seen");
    };
    queue_.setCallbacks(callbacks);
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(takeEvents(), Calls{"seen"});
}

TEST_F(AudioQueueTest, AnotherSessionResetsTheCountersWithoutStoppingAnything) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b", "s2"));
    EXPECT_EQ(loaded(), "a");
    EXPECT_EQ(queue_.chunkIndexThisTurn(), 0);
    EXPECT_EQ(queue_.totalChunksThisTurn(), 1);
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "start b 1/1"}));
}

TEST_F(AudioQueueTest, SnapshotShowsTheFirstOfTwoChunks) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    const auto document = snapshot();
    EXPECT_EQ(document["state"], "playing");
    EXPECT_EQ(document["messageId"], "m-a");
    EXPECT_EQ(document["duration"], 2.0);
    EXPECT_EQ(document["cursor"]["chunkIndex"], 0);
    EXPECT_EQ(document["cursor"]["totalChunks"], 2);
    EXPECT_EQ(document["synthesizing"], false);
}

TEST_F(AudioQueueTest, SnapshotFollowsTheDiskTickAndEndsIdle) {
    players_.setDuration(10);
    queue_.enqueue(chunk("a"));
    const auto rev = writer_->rev();
    loop_.advance(400ms);
    EXPECT_EQ(writer_->rev(), rev);  // still the same whole second
    loop_.advance(400ms);
    EXPECT_EQ(writer_->rev(), rev + 1);
    EXPECT_NEAR(snapshot()["elapsed"].get<double>(), 0.8, 1e-6);
    loop_.advance(10s);
    EXPECT_EQ(snapshot()["state"], "idle");
    EXPECT_EQ(snapshot()["messageId"], "");
    EXPECT_EQ(snapshot()["elapsed"], 0.0);
}

TEST_F(AudioQueueTest, SnapshotGoesThroughIdleBetweenChunks) {
    players_.setDuration(0.3);
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    auto callbacks = recording();
    callbacks.onChunkEnd = [this] {
        EXPECT_EQ(snapshot()["state"], "idle");
        EXPECT_EQ(snapshot()["messageId"], "");
        events_.emplace_back("seen");
    };
    queue_.setCallbacks(callbacks);
    takeEvents();
    const auto rev = writer_->rev();
    loop_.advance(300ms);
    EXPECT_EQ(takeEvents(), (Calls{"seen", "start b 2/2"}));
    EXPECT_EQ(writer_->rev(), rev + 3);  // idle without a message, idle with b's, playing b
    EXPECT_EQ(snapshot()["state"], "playing");
    EXPECT_EQ(snapshot()["messageId"], "m-b");
}

TEST_F(AudioQueueTest, DesktopIsToldOfTheStopWhenTheQueueRunsDry) {
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(center_.state, PlaybackState::playing);
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "end", "idle"}));
    EXPECT_EQ(center_.state, PlaybackState::stopped);
    EXPECT_FALSE(center_.info());
}

TEST_F(AudioQueueTest, EnqueueAllPlaysFromTheGivenChunk) {
    const LogWatch log;
    queue_.enqueueAll(chunks({"a", "b", "c"}), 1);
    EXPECT_EQ(takeEvents(), Calls{"start b 2/3"});
    EXPECT_EQ(queue_.queuedCount(), 1U);
    EXPECT_EQ(log.records("seek-enqueue").at(0)["input"], (Json{{"count", 3}, {"startIndex", 1}}));
}

TEST_F(AudioQueueTest, EnqueueAllBelowTheStartPlaysTheFirstChunk) {
    LogWatch log;
    log.expect("enqueueAll index clamped (probe/ring mismatch)");
    queue_.enqueueAll(chunks({"a", "b"}), -1);
    EXPECT_EQ(takeEvents(), Calls{"start a 1/2"});
    const auto records = log.records("enqueueAll index clamped (probe/ring mismatch)");
    EXPECT_EQ(records.at(0)["input"], (Json{{"requested", -1}, {"clampedTo", 0}, {"count", 2}}));
}

TEST_F(AudioQueueTest, EnqueueAllPastTheEndPlaysTheLastChunkOnly) {
    for (const std::int64_t index : {std::int64_t{2}, std::numeric_limits<std::int64_t>::max()}) {
        LogWatch log;
        log.expect("enqueueAll index clamped (probe/ring mismatch)");
        queue_.enqueueAll(chunks({"a", "b"}), index);
        EXPECT_EQ(takeEvents(), Calls{"start b 2/2"});
        EXPECT_EQ(queue_.chunkIndexThisTurn(), 2);
        EXPECT_EQ(queue_.queuedCount(), 0U);
        EXPECT_EQ(log.records("seek-enqueue").at(0)["input"],
                  (Json{{"count", 2}, {"startIndex", 1}}));
        queue_.clear();
        takeEvents();
    }
}

TEST_F(AudioQueueTest, EnqueueAllOfNothingChangesNothing) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    takeEvents();
    const LogWatch log;
    queue_.enqueueAll({}, 5);
    EXPECT_EQ(loaded(), "a");
    EXPECT_EQ(queue_.queuedCount(), 1U);
    EXPECT_EQ(queue_.totalChunksThisTurn(), 2);
    EXPECT_TRUE(takeEvents().empty());
    EXPECT_TRUE(log.records().empty());
}

TEST_F(AudioQueueTest, EnqueueAllLeavesTheLoadedChunkAndReplacesTheRest) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    takeEvents();
    queue_.enqueueAll(chunks({"x", "y"}), 0);
    EXPECT_EQ(loaded(), "a");
    loop_.advance(2s);
    EXPECT_EQ(takeEvents(), (Calls{"end", "start x 1/2"}));
}

TEST_F(AudioQueueTest, SkipGoesOnWithoutAnEnd) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    takeEvents();
    players_.takeCalls();
    queue_.skip();
    EXPECT_EQ(takeEvents(), Calls{"start b 2/2"});
    EXPECT_EQ(players_.calls(),
              (Calls{"stop a.wav", "drop a.wav", "open b.wav", "volume b.wav", "play b.wav"}));
    queue_.skip();
    EXPECT_EQ(takeEvents(), Calls{"idle"});
}

TEST_F(AudioQueueTest, SkipWithNothingLoadedCallsNothing) {
    const LogWatch log;
    queue_.skip();
    EXPECT_TRUE(takeEvents().empty());
    EXPECT_TRUE(levels_.empty());
    EXPECT_TRUE(log.records().empty());
    EXPECT_EQ(writer_->rev(), 0);
}

TEST_F(AudioQueueTest, ClearDropsEverything) {
    for (const char* name : {"a", "b", "c"}) queue_.enqueue(chunk(name));
    takeEvents();
    queue_.clear();
    EXPECT_EQ(takeEvents(), Calls{"idle"});
    EXPECT_EQ(loaded(), "");
    EXPECT_EQ(queue_.queuedCount(), 0U);
    EXPECT_EQ(queue_.chunkIndexThisTurn(), 0);
    EXPECT_EQ(queue_.totalChunksThisTurn(), 0);
    EXPECT_FALSE(center_.info());
    EXPECT_EQ(center_.state, PlaybackState::stopped);
    EXPECT_EQ(snapshot()["state"], "idle");
    EXPECT_EQ(loop_.armedTimers(), 0U);
}

TEST_F(AudioQueueTest, ClearOnAnIdleQueueStillReports) {
    queue_.clear();
    EXPECT_EQ(takeEvents(), Calls{"idle"});
    ASSERT_EQ(levels_.size(), 1U);
    EXPECT_EQ(levels_[0], AudioQueue::Bands(32, 0.0F));
    EXPECT_EQ(peaks_, AudioQueue::Bands(32, 0.0F));
}

TEST_F(AudioQueueTest, ClearKeepsThePause) {
    queue_.setPaused(true);
    queue_.clear();
    EXPECT_TRUE(queue_.paused());
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(loaded(), "");
}

TEST_F(AudioQueueTest, SeekStaysWithinTheChunk) {
    queue_.enqueue(chunk("a"));
    const double infinity = std::numeric_limits<double>::infinity();
    struct Case {
        double to;
        double lands;
    };
    for (const auto& [to, lands] :
         {Case{1.5, 1.5}, Case{99, 2}, Case{-3, 0}, Case{infinity, 2}, Case{-infinity, 0}}) {
        queue_.seek(to);
        EXPECT_EQ(queue_.current()->currentTime(), lands) << to;
        EXPECT_EQ(center_.info()->elapsed, lands) << to;
        EXPECT_TRUE(queue_.isCurrentlyPlaying());
    }
    queue_.seek(1);
    queue_.seek(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(queue_.current()->currentTime(), 1);
}

TEST_F(AudioQueueTest, SeekAndRestartWithNothingLoadedDoNothing) {
    queue_.seek(1);
    queue_.restartCurrent();
    EXPECT_TRUE(players_.calls().empty());
    EXPECT_FALSE(center_.state);
}

TEST_F(AudioQueueTest, RestartWhilePlayingGoesOnFromTheStart) {
    queue_.enqueue(chunk("a"));
    loop_.advance(1500ms);
    players_.takeCalls();
    queue_.restartCurrent();
    EXPECT_EQ(players_.takeCalls(), (Calls{"seek a.wav", "play a.wav"}));
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(queue_.current()->currentTime(), 0);
    EXPECT_EQ(center_.info()->elapsed, 0);
    loop_.advance(1900ms);
    EXPECT_EQ(loaded(), "a");
    loop_.advance(100ms);
    EXPECT_EQ(loaded(), "");
}

TEST_F(AudioQueueTest, VolumeAndMuteActAtOnceAndOnLaterChunks) {
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(players_.sound()->volume, 1);
    queue_.setVolume(0.25F);
    EXPECT_EQ(players_.sound()->volume, 0.25F);
    queue_.setMuted(true);
    EXPECT_EQ(players_.sound()->volume, 0);
    queue_.setVolume(0.5F);
    EXPECT_EQ(players_.sound()->volume, 0);
    EXPECT_EQ(queue_.volume(), 0.5F);
    queue_.enqueue(chunk("b"));
    queue_.skip();
    EXPECT_EQ(players_.sound()->volume, 0);
    queue_.setMuted(false);
    EXPECT_EQ(players_.sound()->volume, 0.5F);
}

TEST_F(AudioQueueTest, VolumeStaysBetweenSilentAndFull) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [asked, set] : {std::pair{3.0F, 1.0F}, {-1.0F, 0.0F}, {nan, 0.0F}}) {
        queue_.setVolume(asked);
        EXPECT_EQ(queue_.volume(), set);
    }
}

TEST_F(AudioQueueTest, DesktopIsToldOnceASecond) {
    players_.setDuration(10);
    queue_.enqueue(chunk("a"));
    EXPECT_EQ(center_.pushes, 1);
    loop_.advance(960ms);
    EXPECT_EQ(center_.pushes, 1);
    loop_.advance(80ms);
    EXPECT_EQ(center_.pushes, 2);
    EXPECT_NEAR(center_.info()->elapsed, 1.04, 1e-9);
    EXPECT_EQ(center_.info()->rate, 1.0);
}

TEST_F(AudioQueueTest, SoundThatBreaksOffEndsTheChunkAlike) {
    const LogWatch log;
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    takeEvents();
    players_.breakOff();
    loop_.runPosted();
    EXPECT_EQ(takeEvents(), (Calls{"end", "start b 2/2"}));
    EXPECT_EQ(log.records("chunk finished").at(0)["result"], (Json{{"flag", false}}));
}

TEST_F(AudioQueueTest, EndOfAPlayerThatWasDroppedIsIgnored) {
    queue_.enqueue(chunk("a"));
    const auto lateEnd = players_.sound()->onFinished;
    queue_.enqueue(chunk("b"));
    queue_.skip();
    takeEvents();
    lateEnd(true);
    EXPECT_EQ(loaded(), "b");
    queue_.clear();
    takeEvents();
    lateEnd(true);
    EXPECT_TRUE(takeEvents().empty());
}

TEST_F(AudioQueueTest, LogTellsWhatHappensWithoutTheWords) {
    const LogWatch log;
    auto spoken = chunk("a");
    spoken.text = "naïve words";
    queue_.enqueue(spoken);
    queue_.enqueue(chunk("b"));
    queue_.skip();
    queue_.enqueue(chunk("c"));
    queue_.enqueue(chunk("d"));
    queue_.clear();
    EXPECT_EQ(log.records("chunk enqueued").at(0)["input"],
              (Json{{"sessionId", "s1"}, {"length", 11}, {"queueDepth", 1}}));
    EXPECT_EQ(log.records("playback started").at(0)["result"], (Json{{"duration", 2.0}}));
    EXPECT_EQ(log.count("skip"), 1U);
    EXPECT_EQ(log.records("queue cleared").at(0)["input"], (Json{{"queueDepth", 2}}));
    for (const auto& record : log.records()) {
        EXPECT_EQ(record.dump().find("words"), std::string::npos);
        EXPECT_EQ(record["class"], "AudioQueue");
    }
}

TEST(AudioQueueLifetime, TimersAndEndsFindTheQueueGone) {
    ManualLoop loop;
    FakePlayerFactory players(loop);
    const TempDir dir;
    WorkerPool pool(1);
    FilePlayerFactory::FinishedCallback lateEnd;
    {
        AudioQueue queue(loop, players, pool, nullptr,
                         std::make_shared<NowPlayingSnapshotWriter>(dir / "now-playing.json"));
        AudioChunk chunk;
        chunk.url = dir / "a.wav";
        queue.enqueue(chunk);
        lateEnd = players.sound()->onFinished;
    }
    EXPECT_TRUE(players.sound()->dropped);
    EXPECT_EQ(loop.armedTimers(), 0U);
    lateEnd(true);
    pool.drain();
    loop.advance(5s);
}

}  // namespace
}  // namespace sonra::test
