#include "control/Fixture.h"

namespace sonra {
namespace {

using Status = RemoteCommandStatus;

class RemoteCommands : public test::CoordinatorTest {
  protected:
    void SetUp() override { start(); }
};

TEST_F(RemoteCommands, PauseOnAPausedQueueChangesNothingAndSucceeds) {
    playMessage("m1", "words");
    EXPECT_EQ(remote.handlers.pause(), Status::success);
    EXPECT_TRUE(coordinator->queue().paused());
    const auto before = document();
    EXPECT_EQ(remote.handlers.pause(), Status::success);
    EXPECT_EQ(document(), before);
    EXPECT_EQ(remote.handlers.play(), Status::success);
    EXPECT_FALSE(coordinator->queue().paused());
    EXPECT_EQ(remote.handlers.togglePlayPause(), Status::success);
    EXPECT_TRUE(coordinator->queue().paused());
}

TEST_F(RemoteCommands, NextAndPreviousAtTheLiveEdgeWithNothingPlayingAreRefused) {
    playMessage("m1", "words");
    coordinator->handleIPC({{"cmd", "skip"}});
    loop.runPosted();
    const auto calls = players.calls();
    EXPECT_EQ(remote.canNavigate, false);
    EXPECT_EQ(remote.handlers.nextTrack(), Status::commandFailed);
    EXPECT_EQ(remote.handlers.previousTrack(), Status::commandFailed);
    EXPECT_EQ(players.calls(), calls);
}

TEST_F(RemoteCommands, PreviousIsOfferedWhileSomethingPlaysOrInHistory) {
    playMessage("m1", "one");
    coordinator->handleIPC({{"cmd", "skip"}});
    playMessage("m2", "two");
    EXPECT_EQ(remote.canNavigate, true);
    EXPECT_EQ(remote.handlers.previousTrack(), Status::success);
    loop.runPosted();
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m1");
    coordinator->handleIPC({{"cmd", "stop"}});
    loop.runPosted();
    EXPECT_EQ(remote.canNavigate, true);
}

TEST_F(RemoteCommands, NextLeadsForwardAgain) {
    for (const auto* id : {"m1", "m2", "m3"}) {
        playMessage(id, "words");
        coordinator->handleIPC({{"cmd", "skip"}});
    }
    coordinator->handleIPC({{"cmd", "scrub"}, {"index", 2}});
    loop.runPosted();
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m1");
    EXPECT_EQ(remote.handlers.nextTrack(), Status::success);
    loop.runPosted();
    EXPECT_EQ(coordinator->queue().currentChunk()->messageId, "m2");
}

TEST_F(RemoteCommands, NextInAPauseIsSeenAtOnce) {
    playMessage("m1", "one");
    playMessage("m1", "two");
    remote.handlers.pause();
    loop.runPosted();
    EXPECT_EQ(remote.canNavigate, true);
    EXPECT_EQ(remote.handlers.nextTrack(), Status::success);
    loop.runPosted();
    EXPECT_EQ(*caption().status, NarrationStatus::paused(1));
    EXPECT_EQ(coordinator->queue().current(), nullptr);
    EXPECT_EQ(remote.canNavigate, false);
}

TEST_F(RemoteCommands, SeekStopAndVolumeActOnTheQueue) {
    playMessage("m1", "one");
    remote.handlers.seek(1.5);
    EXPECT_NEAR(coordinator->queue().current()->currentTime(), 1.5, 0.01);
    remote.handlers.volume(0.25);
    EXPECT_FLOAT_EQ(coordinator->queue().volume(), 0.25F);
    EXPECT_EQ(document()["volume"], 25);
    EXPECT_DOUBLE_EQ(remote.volume, 0.25);
    EXPECT_EQ(remote.handlers.stop(), Status::success);
    EXPECT_EQ(coordinator->queue().current(), nullptr);
}

TEST_F(RemoteCommands, AfterTheCoordinatorHasGoneAllFail) {
    const auto handlers = remote.handlers;
    coordinator.reset();
    for (const auto& handler : {handlers.play, handlers.pause, handlers.togglePlayPause,
                                handlers.nextTrack, handlers.previousTrack})
        EXPECT_EQ(handler(), Status::commandFailed);
}

}  // namespace
}  // namespace sonra
