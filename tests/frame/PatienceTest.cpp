#include "frame/Patience.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using namespace std::chrono_literals;

TEST(Patience, EndsWhenItsTimeWasWaited) {
    Patience patience(1s);
    for (int part = 0; part < 4; ++part) {
        EXPECT_FALSE(patience.isOver());
        EXPECT_EQ(patience.nextPart(), 250ms);
        patience.spend(250ms);
    }
    EXPECT_TRUE(patience.isOver());
}

TEST(Patience, AStandstillCountsNoMoreThanThePartThatItFellInto) {
    Patience patience(1s);
    patience.spend(1h);
    EXPECT_FALSE(patience.isOver());
    for (int part = 0; part < 3; ++part) patience.spend(1h);
    EXPECT_TRUE(patience.isOver());
}

TEST(Patience, WaitsThatEndEarlyCountWhatTheyTook) {
    Patience patience(1s);
    patience.spend(900ms / 10);
    patience.spend(250ms);
    patience.spend(250ms);
    patience.spend(250ms);
    EXPECT_EQ(patience.nextPart(), 160ms);
    patience.spend(-1ms);
    EXPECT_EQ(patience.nextPart(), 160ms);
    patience.spend(160ms);
    EXPECT_TRUE(patience.isOver());
}

TEST(Patience, NoneIsOverAtOnce) {
    EXPECT_TRUE(Patience(0ms).isOver());
    EXPECT_TRUE(Patience(-1ms).isOver());
    EXPECT_FALSE(Patience(1us).isOver());
}

}  // namespace
}  // namespace sonra
