#include <gtest/gtest.h>

#include "playback/AudioQueueFixture.h"
#include "support/LogWatch.h"

namespace sonra::test {
namespace {

class AudioQueuePauseTest : public AudioQueueFixture {};

TEST_F(AudioQueuePauseTest, EnqueueWhilePausedWaitsForTheResume) {
    queue_.setPaused(true);
    queue_.enqueue(chunk("a"));
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    EXPECT_TRUE(players_.calls().empty());
    queue_.setPaused(false);
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(takeEvents(), (Calls{"paused 0", "paused 1", "start a 1/1", "resumed"}));
}

TEST_F(AudioQueuePauseTest, ListenerSeesTheBacklogGrow) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    queue_.enqueue(chunk("b"));
    queue_.enqueue(chunk("c"));
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "paused 0", "paused 1", "paused 2"}));
}

TEST_F(AudioQueuePauseTest, EnqueueAllWhilePausedWaitsForTheResume) {
    queue_.setPaused(true);
    queue_.enqueueAll(chunks({"a", "b"}), 1);
    EXPECT_EQ(loaded(), "");
    takeEvents();
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start b 2/2", "resumed"}));
}

TEST_F(AudioQueuePauseTest, PauseKeepsThePositionAndResumesThere) {
    queue_.enqueue(chunk("a"));
    loop_.advance(500ms);
    queue_.setPaused(true);
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    loop_.advance(10s);
    EXPECT_EQ(loaded(), "a");
    EXPECT_EQ(queue_.current()->currentTime(), 0.5);
    queue_.setPaused(false);
    loop_.advance(1400ms);
    EXPECT_EQ(loaded(), "a");
    loop_.advance(100ms);
    EXPECT_EQ(loaded(), "");
}

TEST_F(AudioQueuePauseTest, DesktopAndSnapshotShowThePause) {
    queue_.enqueue(chunk("a"));
    loop_.advance(500ms);
    queue_.setPaused(true);
    EXPECT_EQ(center_.state, PlaybackState::paused);
    EXPECT_EQ(center_.info()->rate, 0);
    EXPECT_EQ(center_.info()->elapsed, 0.5);
    loop_.advance(400ms);
    EXPECT_EQ(snapshot()["state"], "paused");
    queue_.setPaused(false);
    EXPECT_EQ(center_.state, PlaybackState::playing);
    EXPECT_EQ(center_.info()->rate, 1.0);
    loop_.advance(400ms);
    EXPECT_EQ(snapshot()["state"], "playing");
}

TEST_F(AudioQueuePauseTest, SilenceComesBeforeAnythingElse) {
    queue_.enqueue(chunk("a"));
    auto callbacks = recording();
    callbacks.onPaused = [this](std::size_t) { EXPECT_EQ(players_.calls().back(), "pause a.wav"); };
    queue_.setCallbacks(callbacks);
    players_.takeCalls();
    const LogWatch log;
    queue_.setPaused(true);
    EXPECT_EQ(players_.takeCalls(), Calls{"pause a.wav"});
    EXPECT_TRUE(log.records().empty());
}

TEST_F(AudioQueuePauseTest, SettingTheSameValueActsAgain) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    queue_.setPaused(true);
    queue_.setPaused(false);
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start a 1/1", "paused 0", "paused 0", "resumed", "resumed"}));
}

TEST_F(AudioQueuePauseTest, ResumeOfAnIdleQueueOnlyReports) {
    queue_.setPaused(true);
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"paused 0", "resumed"}));
    EXPECT_TRUE(levels_.empty());
}

TEST_F(AudioQueuePauseTest, SkipWhilePausedUnloadsAndStartsNothing) {
    queue_.enqueue(ephemeral("a"));
    queue_.enqueue(chunk("b"));
    queue_.setPaused(true);
    takeEvents();
    queue_.skip();
    EXPECT_EQ(loaded(), "");
    EXPECT_FALSE(exists("a"));
    EXPECT_TRUE(takeEvents().empty());
    EXPECT_EQ(snapshot()["state"], "idle");
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start b 2/2", "resumed"}));
}

TEST_F(AudioQueuePauseTest, SkipOfTheLastChunkWhilePausedIsIdleAfterTheResume) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    queue_.skip();
    takeEvents();
    EXPECT_TRUE(center_.info());
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"idle", "resumed"}));
    EXPECT_FALSE(center_.info());
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), Calls{"resumed"});
}

TEST_F(AudioQueuePauseTest, EndThatArrivesInAPauseStartsNothing) {
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    takeEvents();
    players_.breakOff();
    queue_.setPaused(true);
    loop_.runPosted();
    EXPECT_EQ(takeEvents(), (Calls{"paused 1", "end"}));
    EXPECT_EQ(loaded(), "");
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start b 2/2", "resumed"}));
}

TEST_F(AudioQueuePauseTest, OpenFailureOnResumePassesOnToTheNext) {
    LogWatch log;
    log.expect("audio open failed");
    queue_.setPaused(true);
    queue_.enqueue(chunk("a"));
    queue_.enqueue(chunk("b"));
    players_.failToOpen(path("a"), "no such file");
    takeEvents();
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"start b 2/2", "resumed"}));
}

TEST_F(AudioQueuePauseTest, ClearWhilePausedForgetsThatAStartIsDue) {
    queue_.setPaused(true);
    queue_.enqueue(chunk("a"));
    queue_.clear();
    takeEvents();
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), Calls{"resumed"});
}

TEST_F(AudioQueuePauseTest, RestartWhilePausedStaysPausedAtTheStart) {
    queue_.enqueue(chunk("a"));
    loop_.advance(1s);
    queue_.setPaused(true);
    players_.takeCalls();
    queue_.restartCurrent();
    EXPECT_EQ(players_.takeCalls(), Calls{"seek a.wav"});
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(queue_.current()->currentTime(), 0);
    EXPECT_EQ(center_.state, PlaybackState::paused);
    EXPECT_EQ(center_.info()->elapsed, 0);
}

TEST_F(AudioQueuePauseTest, SeekWhilePausedStaysPaused) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    queue_.seek(1.5);
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    EXPECT_EQ(queue_.current()->currentTime(), 1.5);
    EXPECT_EQ(center_.info()->elapsed, 1.5);
}

TEST_F(AudioQueuePauseTest, TicksGoOnDuringAPause) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    progress_.clear();
    loop_.advance(800ms);
    EXPECT_EQ(progress_.size(), 10U);
    EXPECT_EQ(levels_.size(), 10U);
}

TEST_F(AudioQueuePauseTest, SoundThatCantGoOnHasEnded) {
    queue_.enqueue(chunk("a"));
    queue_.setPaused(true);
    takeEvents();
    players_.failToPlay(true);
    queue_.setPaused(false);
    EXPECT_EQ(takeEvents(), (Calls{"end", "idle", "resumed"}));
}

}  // namespace
}  // namespace sonra::test
