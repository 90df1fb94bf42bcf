#include "captions/CaptionFixture.h"
#include "captions/CaptionFrame.h"
#include "captions/CaptionWindow.h"
#include "support/ManualLoop.h"

namespace sonra {
namespace {

constexpr Rect standard{{310, 540}, {820, 260}};

class CaptionWindowFrameTest : public testing::Test {
  protected:
    /// The frame of a new window with these stored.
    Rect firstFrame(const Json& origin, const Json& size) {
        Json& values = desktop_.defaults.values;
        values = Json::object();
        if (!origin.is_null()) values["TTSCaptionsWindowOrigin"] = origin;
        if (!size.is_null()) values["TTSCaptionsWindowSize"] = size;
        window_ = desktop_.makeWindow();
        return panel().frame();
    }
    test::FakePanel& panel() { return *desktop_.panel; }
    const Json& stored() const { return desktop_.defaults.values; }

    test::ManualLoop loop_;
    test::CaptionDesktop desktop_{loop_};
    std::unique_ptr<CaptionWindow> window_ = desktop_.makeWindow();
};

TEST_F(CaptionWindowFrameTest, StandsAtItsDefaultUnlessBothOriginAndSizeAreStored) {
    EXPECT_EQ((Rect{{310, 540}, {820, 260}}), firstFrame(nullptr, nullptr));
    EXPECT_EQ(standard, firstFrame("{50, 60}", nullptr));
    EXPECT_EQ(standard, firstFrame(nullptr, "{500, 200}"));
    EXPECT_EQ(standard, firstFrame("{50; 60}", "{500, 200}"));
    EXPECT_EQ(standard, firstFrame(50, "{500, 200}"));
}

TEST_F(CaptionWindowFrameTest, TakesUpTheStoredFrameWithinTheScreen) {
    EXPECT_EQ((Rect{{50, 60}, {500, 200}}), firstFrame("{50, 60}", "{500, 200}"));
    EXPECT_EQ((Rect{{930, 690}, {500, 200}}), firstFrame("{4000, 3000}", "{500, 200}"));
    EXPECT_EQ((Rect{{10, 10}, {1420, 880}}), firstFrame("{0, 0}", "{5000, 5000}"));
}

TEST_F(CaptionWindowFrameTest, WithoutAnyScreenOneIsAssumed) {
    desktop_.screens.visible.reset();
    EXPECT_EQ(standard, firstFrame(nullptr, nullptr));
    const auto moves = panel().moves.size();
    window_->show();
    EXPECT_EQ(moves, panel().moves.size());
}

TEST_F(CaptionWindowFrameTest, StaysOnTheSecondScreenWhereItWasPut) {
    const Rect there{{1500, 700}, {600, 200}};
    desktop_.screens.second = Rect{{1440, 0}, {1920, 1080}};
    EXPECT_EQ(there, firstFrame("{1500, 700}", "{600, 200}"));
    window_->show();
    EXPECT_EQ(there, panel().frame());
    desktop_.screens.second.reset();
    window_->show();
    EXPECT_EQ((Rect{{830, 690}, {600, 200}}), panel().frame());
}

TEST_F(CaptionWindowFrameTest, AFrameOffThePresentScreensComesBackOnShow) {
    firstFrame("{900, 600}", "{500, 200}");
    desktop_.screens.visible = Rect{{0, 0}, {1024, 768}};
    window_->show();
    EXPECT_EQ((Rect{{514, 558}, {500, 200}}), panel().frame());
    EXPECT_FALSE(panel().moves.back().animated);
}

TEST_F(CaptionWindowFrameTest, ShowLeavesAFrameThatFitsAlone) {
    firstFrame("{50, 60}", "{500, 200}");
    window_->show();
    EXPECT_EQ(1U, panel().moves.size());
}

TEST_F(CaptionWindowFrameTest, WhereTheUserPutsThePanelIsKept) {
    panel().dragTo({{33, 44.5}, {640, 300}});
    EXPECT_EQ("{33, 44.5}", stored()["TTSCaptionsWindowOrigin"]);
    EXPECT_EQ("{640, 300}", stored()["TTSCaptionsWindowSize"]);
    window_ = desktop_.makeWindow();
    EXPECT_EQ((Rect{{33, 44.5}, {640, 300}}), panel().frame());
}

TEST_F(CaptionWindowFrameTest, ResetForgetsThePlaceAndGoesBackToTheDefault) {
    panel().dragTo({{33, 44}, {640, 300}});
    window_->resetPosition();
    EXPECT_EQ(Json::object(), stored());
    EXPECT_EQ((test::FakePanel::Move{standard, false}), panel().moves.back());
}

TEST_F(CaptionWindowFrameTest, ResetOfAPanelThatIsSeenIsAnimated) {
    window_->show();
    window_->appearance().resetPosition();
    EXPECT_EQ((test::FakePanel::Move{standard, true}), panel().moves.back());
}

}  // namespace
}  // namespace sonra
