#include "playback/NarrationDucker.h"

#include "playback/AudioQueueFixture.h"

namespace sonra {
namespace {

/// Of the audio queue itself, on a player without sound.
class NarrationDuckerTest : public test::AudioQueueFixture {
  protected:
    NarrationDucker ducker_{queue_};
};

TEST_F(NarrationDuckerTest, WithTheQueueIdleItPausesAndRestores) {
    ducker_.duck();
    EXPECT_TRUE(queue_.paused());
    EXPECT_TRUE(ducker_.isDucked());
    ducker_.unduck();
    EXPECT_FALSE(queue_.paused());
    EXPECT_FALSE(ducker_.isDucked());
}

TEST_F(NarrationDuckerTest, WhilePlayingItPausesAndResumes) {
    queue_.enqueue(chunk("a"));
    ASSERT_TRUE(queue_.isCurrentlyPlaying());
    ducker_.duck();
    EXPECT_FALSE(queue_.isCurrentlyPlaying());
    ducker_.unduck();
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
}

TEST_F(NarrationDuckerTest, SwitchedOffItDoesNothing) {
    ducker_.setEnabled(false);
    ducker_.duck();
    EXPECT_FALSE(queue_.paused());
    EXPECT_FALSE(ducker_.isDucked());
    EXPECT_TRUE(events_.empty());
}

TEST_F(NarrationDuckerTest, SwitchingItOffDoesNotKeepADuckFromEnding) {
    ducker_.duck();
    ducker_.setEnabled(false);
    ducker_.unduck();
    EXPECT_FALSE(queue_.paused());
    EXPECT_FALSE(ducker_.isDucked());
}

TEST_F(NarrationDuckerTest, ASecondDuckKeepsTheStateOfTheFirst) {
    ducker_.duck();
    ducker_.duck();
    ducker_.unduck();
    EXPECT_FALSE(queue_.paused());
}

TEST_F(NarrationDuckerTest, AChunkThatComesMeanwhileIsHeldAndThenStarts) {
    ducker_.duck();
    queue_.enqueue(chunk("a"));
    EXPECT_TRUE(queue_.paused());
    EXPECT_EQ("", loaded());
    ducker_.unduck();
    EXPECT_FALSE(queue_.paused());
    EXPECT_EQ("a", loaded());
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
}

TEST_F(NarrationDuckerTest, AResumeByHandIsRespected) {
    queue_.enqueue(chunk("a"));
    ducker_.duck();
    queue_.setPaused(false);
    takeEvents();
    ducker_.unduck();
    EXPECT_TRUE(queue_.isCurrentlyPlaying());
    EXPECT_FALSE(ducker_.isDucked());
    EXPECT_TRUE(events_.empty());
}

TEST_F(NarrationDuckerTest, APauseFromBeforeStays) {
    queue_.setPaused(true);
    ducker_.duck();
    EXPECT_TRUE(queue_.paused());
    ducker_.unduck();
    EXPECT_TRUE(queue_.paused());
    EXPECT_FALSE(ducker_.isDucked());
}

TEST_F(NarrationDuckerTest, UnduckWithoutADuckLeavesThingsAlone) {
    queue_.setPaused(true);
    takeEvents();
    ducker_.unduck();
    EXPECT_TRUE(queue_.paused());
    EXPECT_TRUE(events_.empty());
}

TEST_F(NarrationDuckerTest, ItCanBeUsedAgain) {
    ducker_.duck();
    ducker_.unduck();
    queue_.setPaused(true);
    ducker_.duck();
    ducker_.unduck();
    EXPECT_TRUE(queue_.paused());
}

}  // namespace
}  // namespace sonra
