#include "playback/Spectrogram.h"

#include <gtest/gtest.h>

#include <limits>

namespace sonra {
namespace {

using Bands = std::vector<float>;

Spectrogram threeFrames() {
    return {2, 0.04, {{0, 1}, {1, 0.5F}, {0.25F, 0.75F}}, 0.12};
}

TEST(Spectrogram, HalfWayBetweenTwoFramesIsTheirMean) {
    const auto bands = threeFrames().bands(0.02);
    ASSERT_EQ(bands.size(), 2U);
    EXPECT_NEAR(bands[0], 0.5, 1e-6);
    EXPECT_NEAR(bands[1], 0.75, 1e-6);
}

TEST(Spectrogram, PastTheEndReturnsTheLastFrame) {
    const Bands last{0.25F, 0.75F};
    const double infinity = std::numeric_limits<double>::infinity();
    for (const double time : {0.08, 0.1, 5.0, 1e300, infinity})
        EXPECT_EQ(threeFrames().bands(time), last);
}

TEST(Spectrogram, BeforeTheStartReturnsTheFirstFrame) {
    const Bands first{0, 1};
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double time : {0.0, -0.01, -1e300, nan}) EXPECT_EQ(threeFrames().bands(time), first);
}

TEST(Spectrogram, WithoutFramesIsZeros) {
    const Spectrogram none{3, 0.04, {}, 0};
    EXPECT_EQ(none.bands(1), Bands(3, 0.0F));
}

}  // namespace
}  // namespace sonra
