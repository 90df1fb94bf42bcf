#include "playback/SpectrumConfig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>

namespace sonra {
namespace {

TEST(SpectrumConfig, BandEdgesRiseFromLowestToHighest) {
    const auto edges = SpectrumConfig::bandEdges(32, 60, 12000);
    ASSERT_EQ(edges.size(), 33U);
    EXPECT_NEAR(edges.front(), 60, 0.001);
    EXPECT_NEAR(edges.back(), 12000, 0.1);
    EXPECT_TRUE(std::ranges::is_sorted(edges, std::less_equal<>()));
}

TEST(SpectrumConfig, BandEdgesAreEvenlySpacedInOctaves) {
    const auto edges = SpectrumConfig::bandEdges(4, 100, 1600);
    const std::vector<float> wanted{100, 200, 400, 800, 1600};
    ASSERT_EQ(edges.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) EXPECT_NEAR(edges[i], wanted[i], 0.01);
}

TEST(SpectrumConfig, ImpossibleRangesHaveNoEdges) {
    struct Case {
        int bands;
        float fMin;
        float fMax;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const auto& [bands, fMin, fMax] :
         {Case{0, 60, 12000}, Case{-1, 60, 12000}, Case{32, 0, 12000}, Case{32, -5, 12000},
          Case{32, 60, 60}, Case{32, 60, 0.5F}, Case{32, nan, 12000}, Case{32, 60, nan}})
        EXPECT_TRUE(SpectrumConfig::bandEdges(bands, fMin, fMax).empty()) << bands << " " << fMin;
}

}  // namespace
}  // namespace sonra
