#include "playback/SpectrumSmoother.h"

#include <gtest/gtest.h>

#include <limits>

namespace sonra {
namespace {

using Bands = std::vector<float>;

TEST(SpectrumSmoother, RisesByAttackFallsByDecayAndResets) {
    SpectrumSmoother smoother(1, 0.5F, 0.1F);
    auto bars = smoother.advance(Bands{1});
    EXPECT_NEAR(bars.levels[0], 0.5, 1e-6);
    EXPECT_NEAR(bars.peaks[0], 0.5, 1e-6);
    bars = smoother.advance(Bands{0});
    EXPECT_NEAR(bars.levels[0], 0.45, 1e-6);
    EXPECT_NEAR(bars.peaks[0], 0.455, 1e-6);
    EXPECT_GT(bars.peaks[0], bars.levels[0]);
    smoother.reset();
    bars = smoother.advance(Bands{0});
    EXPECT_EQ(bars.levels[0], 0);
    EXPECT_EQ(bars.peaks[0], 0);
}

TEST(SpectrumSmoother, IsNearFullAfterThreeTicksAndFlatAfterTwelveSilentOnes) {
    SpectrumSmoother smoother(1);
    SpectrumSmoother::Bars bars;
    for (int i = 0; i < 3; ++i) bars = smoother.advance(Bands{1});
    EXPECT_GE(bars.levels[0], 0.95F);
    for (int i = 0; i < 12; ++i) bars = smoother.advance(Bands{0});
    EXPECT_LT(bars.levels[0], 0.02F);
    EXPECT_LT(bars.peaks[0], 0.5F);
    EXPECT_GT(bars.peaks[0], bars.levels[0]);
}

TEST(SpectrumSmoother, ComesFullyToRest) {
    SpectrumSmoother smoother(1);
    smoother.advance(Bands{1});
    SpectrumSmoother::Bars bars;
    for (int i = 0; i < 30; ++i) bars = smoother.advance(Bands{0});
    EXPECT_EQ(bars.levels[0], 0);
    EXPECT_EQ(bars.peaks[0], 0);
}

TEST(SpectrumSmoother, PeakNeverFallsBelowItsLevel) {
    SpectrumSmoother smoother(1, 1, 0.1F, 0.9F);
    smoother.advance(Bands{1});
    const auto bars = smoother.advance(Bands{0});
    EXPECT_NEAR(bars.peaks[0], 0.9, 1e-6);
    EXPECT_EQ(bars.peaks[0], bars.levels[0]);
}

TEST(SpectrumSmoother, TakesMissingBandsAsZeroAndHoldsTargetsToTheRange) {
    SpectrumSmoother smoother(4, 1);
    const auto bars = smoother.advance(Bands{7, -3, std::numeric_limits<float>::quiet_NaN()});
    EXPECT_EQ(bars.levels, (Bands{1, 0, 0, 0}));
}

TEST(SpectrumSmoother, WithoutBandsReturnsNothing) {
    SpectrumSmoother smoother(0);
    const auto bars = smoother.advance(Bands{1, 1});
    EXPECT_TRUE(bars.levels.empty());
    EXPECT_TRUE(bars.peaks.empty());
}

}  // namespace
}  // namespace sonra
