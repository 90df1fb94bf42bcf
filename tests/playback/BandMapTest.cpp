#include "playback/BandMap.h"

#include <gtest/gtest.h>

#include <cmath>

namespace sonra {
namespace {

constexpr float hzPerBin = 10;

std::vector<float> levels(const std::vector<float>& edges, const std::vector<float>& powers) {
    return BandMap(edges, hzPerBin, static_cast<int>(powers.size())).decibels(powers);
}

double decibels(double power) {
    return 10 * std::log10(power);
}

TEST(BandMap, BinBelongsToTheBandFromItsLowerEdgeToBelowTheUpper) {
    const auto bands = levels({10, 20, 40}, {1e6F, 2, 5, 7, 1e6F, 1e6F});
    ASSERT_EQ(bands.size(), 2U);
    EXPECT_NEAR(bands[0], decibels(2), 1e-4);
    EXPECT_NEAR(bands[1], decibels(6), 1e-4);  // the mean of 5 and 7
}

// From 11 to 19 Hz the geometric mean is 1.4457 bins, the arithmetic 1.5.
TEST(BandMap, BandWithoutBinsReadsBetweenThoseAroundItsGeometricMean) {
    const std::vector<float> powers{1e6F, 1, 101, 1e6F, 1e6F, 1e6F};
    EXPECT_NEAR(levels({11, 19}, powers).at(0), decibels(1 + 44.57), 1e-3);
    const std::vector<float> falling{1e6F, 101, 1, 1e6F, 1e6F, 1e6F};
    EXPECT_NEAR(levels({11, 19}, falling).at(0), decibels(101 - 44.57), 1e-3);
}

TEST(BandMap, NarrowBandBeyondTheOuterBinsReadsTheOutermostOfThem) {
    const std::vector<float> powers{1e6F, 2, 3, 4, 5, 1e6F};
    EXPECT_NEAR(levels({2, 8}, powers).at(0), decibels(2), 1e-4);
    EXPECT_NEAR(levels({51, 59}, powers).at(0), decibels(5), 1e-4);
}

TEST(BandMap, MeanOfTheSignalBelongsToNoBand) {
    const std::vector<float> powers{1e6F, 2, 3, 4, 5, 6};
    const auto bands = levels({0, 5, 15, 25}, powers);
    ASSERT_EQ(bands.size(), 3U);
    EXPECT_NEAR(bands[0], decibels(2), 1e-4);
    EXPECT_NEAR(bands[1], decibels(2), 1e-4);
    EXPECT_NEAR(bands[2], decibels(3), 1e-4);
}

TEST(BandMap, NothingIsAtTheBottomOfTheScale) {
    EXPECT_NEAR(levels({10, 20}, {0, 0, 0, 0}).at(0), -90, 1e-4);
}

}  // namespace
}  // namespace sonra
