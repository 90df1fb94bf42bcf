#include "captions/LiveIndicator.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using LiveIndicatorFormat::newBadgeLabel;
using LiveIndicatorFormat::pillLabel;

TEST(LiveIndicator, ThePillIsHiddenWhileNothingHasPlayed) {
    EXPECT_EQ(std::nullopt, pillLabel({}));
    EXPECT_EQ(std::nullopt, pillLabel({LiveIndicator::Idle{}}));
}

TEST(LiveIndicator, ThePillSaysLiveOrThePlaceInHistory) {
    EXPECT_EQ("LIVE", pillLabel({LiveIndicator::Live{}}));
    EXPECT_EQ("← 3 / 12", pillLabel({LiveIndicator::History{3, 12}}));
    EXPECT_EQ("← 1 / 1", pillLabel({LiveIndicator::History{1, 1}}));
}

TEST(LiveIndicator, TheBadgeCountsFromOne) {
    EXPECT_EQ("+2 new", newBadgeLabel(2));
    EXPECT_EQ("+1 new", newBadgeLabel(1));
    EXPECT_EQ(std::nullopt, newBadgeLabel(0));
    EXPECT_EQ(std::nullopt, newBadgeLabel(-1));
}

TEST(LiveIndicator, ComparesByValue) {
    const LiveIndicator history{LiveIndicator::History{1, 2}};
    EXPECT_EQ((LiveIndicator{LiveIndicator::History{1, 2}}), history);
    EXPECT_NE((LiveIndicator{LiveIndicator::History{2, 2}}), history);
    EXPECT_NE((LiveIndicator{LiveIndicator::Live{}}), history);
}

}  // namespace
}  // namespace sonra
