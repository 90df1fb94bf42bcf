#include "captions/CaptionAppearance.h"

#include <gtest/gtest.h>

#include <limits>

#include "support/FakeDefaults.h"

namespace sonra {
namespace {

class CaptionAppearanceTest : public testing::Test {
  protected:
    double fontSizeOf(const Json& stored) {
        defaults_.values["TTSCaptionsFontSize"] = stored;
        return appearance_.fontSize();
    }
    double opacityOf(const Json& stored) {
        defaults_.values["TTSCaptionsOpacity"] = stored;
        return appearance_.opacity();
    }

    test::FakeDefaults defaults_;
    CaptionAppearance appearance_{defaults_};
};

TEST_F(CaptionAppearanceTest, NothingStoredReadsAsTheDefaults) {
    EXPECT_EQ(22, appearance_.fontSize());
    EXPECT_EQ(1.0, appearance_.opacity());
}

TEST_F(CaptionAppearanceTest, AStoredFontSizeIsHeldInItsRange) {
    EXPECT_EQ(34, fontSizeOf(100));
    EXPECT_EQ(14, fontSizeOf(2));
    EXPECT_EQ(17.5, fontSizeOf(17.5));
}

TEST_F(CaptionAppearanceTest, AStoredOpacityIsHeldInItsRange) {
    EXPECT_EQ(0.5, opacityOf(0.1));
    EXPECT_EQ(1.0, opacityOf(3));
    EXPECT_EQ(0.75, opacityOf(0.75));
}

TEST_F(CaptionAppearanceTest, AStoredValueOfAnotherTypeReadsAsTheDefault) {
    EXPECT_EQ(22, fontSizeOf("30"));
    EXPECT_EQ(22, fontSizeOf(true));
    EXPECT_EQ(1.0, opacityOf("0.5"));
}

TEST_F(CaptionAppearanceTest, SettersStoreTheHeldValueAndTellOfIt) {
    int changes = 0;
    appearance_.appearanceChanged = [&] { ++changes; };
    appearance_.setFontSize(99);
    EXPECT_EQ(34.0, defaults_.values["TTSCaptionsFontSize"]);
    EXPECT_EQ(1, changes);
    appearance_.setOpacity(0.2);
    EXPECT_EQ(0.5, defaults_.values["TTSCaptionsOpacity"]);
    EXPECT_EQ(2, changes);
}

TEST_F(CaptionAppearanceTest, WhatIsNoNumberBecomesTheDefault) {
    appearance_.setFontSize(std::numeric_limits<double>::quiet_NaN());
    appearance_.setOpacity(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(22.0, defaults_.values["TTSCaptionsFontSize"]);
    EXPECT_EQ(1.0, defaults_.values["TTSCaptionsOpacity"]);
}

}  // namespace
}  // namespace sonra
