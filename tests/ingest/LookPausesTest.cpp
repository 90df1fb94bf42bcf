#include "ingest/LookPauses.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using namespace std::chrono_literals;

class LookPausesTest : public testing::Test {
  protected:
    /// Whether the pause that begins now has this length.
    void expectPause(std::chrono::milliseconds length) {
        EXPECT_TRUE(pauses.isPaused("a", now + length - 1ms)) << length.count();
        EXPECT_FALSE(pauses.isPaused("a", now + length)) << length.count();
    }

    LookPauses pauses;
    LookPauses::Time now{1000h};
};

TEST_F(LookPausesTest, NobodyPausesWithoutNeed) {
    EXPECT_FALSE(pauses.isPaused("a", now));
}

TEST_F(LookPausesTest, PauseIsMuchLongerThanTheLook) {
    pauses.lookRanOut("a", now, 250ms);
    expectPause(2500ms);
    EXPECT_FALSE(pauses.isPaused("b", now));
}

TEST_F(LookPausesTest, EachLookInVainDoublesThePause) {
    std::chrono::milliseconds pause = 2500ms;
    for (int look = 0; look < 12;
         ++look, pause = std::min<std::chrono::milliseconds>(pause * 2, 5min)) {
        pauses.lookRanOut("a", now, 250ms);
        expectPause(pause);
        now += pause;
    }
    EXPECT_EQ(pause, 5min);
}

TEST_F(LookPausesTest, SuccessEndsThePause) {
    pauses.lookRanOut("a", now, 250ms);
    pauses.lookRanOut("a", now, 250ms);
    pauses.lookSucceeded("a");
    EXPECT_FALSE(pauses.isPaused("a", now));
    pauses.lookRanOut("a", now, 250ms);
    expectPause(2500ms);
}

TEST_F(LookPausesTest, ClockThatIsSetBackEndsThePause) {
    pauses.lookRanOut("a", now, 250ms);
    EXPECT_FALSE(pauses.isPaused("a", now - 1ms));
}

}  // namespace
}  // namespace sonra
