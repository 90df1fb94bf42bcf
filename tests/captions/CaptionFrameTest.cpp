#include "captions/CaptionFrame.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

constexpr Rect screen{{0, 30}, {1440, 870}};

Rect held(const Rect& frame) {
    return CaptionFrame::held(frame, screen);
}

TEST(CaptionFrame, AFrameThatFitsStaysAsItIs) {
    const Rect frame{{100, 200}, {600, 240}};
    EXPECT_EQ(frame, held(frame));
    const Rect widest{{10, 40}, {1420, 850}};
    EXPECT_EQ(widest, held(widest));
}

TEST(CaptionFrame, AFrameBeyondAnEdgeComesBackToTheMargin) {
    EXPECT_EQ((Rect{{10, 40}, {600, 240}}), held({{-500, -500}, {600, 240}}));
    EXPECT_EQ((Rect{{830, 650}, {600, 240}}), held({{5000, 5000}, {600, 240}}));
}

TEST(CaptionFrame, TheSizeIsHeldBetweenTheLeastAndTheScreen) {
    EXPECT_EQ((Size{420, 180}), held({{50, 50}, {1, 1}}).size);
    EXPECT_EQ((Rect{{10, 40}, {1420, 850}}), held({{50, 50}, {9000, 9000}}));
}

TEST(CaptionFrame, OnATinyScreenTheTopLeftCornerIsSeen) {
    EXPECT_EQ((Rect{{10, 10}, {420, 180}}),
              CaptionFrame::held({{900, 900}, {600, 240}}, {{0, 0}, {320, 160}}));
}

TEST(CaptionFrame, StandsLowAndCentredByDefault) {
    EXPECT_EQ((Rect{{310, 540}, {820, 260}}), CaptionFrame::standard(screen));
    EXPECT_EQ((Rect{{200, 240}, {600, 260}}), CaptionFrame::standard({{0, 0}, {1000, 600}}));
}

TEST(CaptionFrame, WritesAndReadsThePair) {
    EXPECT_EQ("{12, -3.5}", CaptionFrame::text(Point{12, -3.5}));
    EXPECT_EQ("{600, 240}", CaptionFrame::text(Size{600, 240}));
    EXPECT_EQ((Point{12, -3.5}), CaptionFrame::pointFrom("{12, -3.5}"));
    EXPECT_EQ((Size{600, 240}), CaptionFrame::sizeFrom(" { 600,240 } "));
    const Point odd{1.0 / 3, 1e300};
    EXPECT_EQ(odd, CaptionFrame::pointFrom(CaptionFrame::text(odd)));
}

TEST(CaptionFrame, ReadsNothingFromOtherText) {
    for (const auto* text : {"", "{}", "{1}", "{1, }", "{1 2}", "1, 2", "{1, 2", "{1, 2} x",
                             "{nan, 2}", "{inf, 2}", "{1e999, 2}", "{{1, 2}, {3, 4}}"}) {
        EXPECT_EQ(std::nullopt, CaptionFrame::pointFrom(text)) << text;
        EXPECT_EQ(std::nullopt, CaptionFrame::sizeFrom(text)) << text;
    }
}

}  // namespace
}  // namespace sonra
