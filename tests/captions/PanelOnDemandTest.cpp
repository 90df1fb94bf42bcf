#include "captions/PanelOnDemand.h"

#include <gtest/gtest.h>

#include "support/FakePanel.h"

namespace sonra {
namespace {

class PanelOnDemandTest : public testing::Test {
  protected:
    int made_ = 0;
    test::FakePanel* real_ = nullptr;
    PanelOnDemand panel_{[this] {
        ++made_;
        auto panel = std::make_unique<test::FakePanel>();
        real_ = panel.get();
        return panel;
    }};
};

constexpr Rect place{{10, 20}, {300, 200}};
constexpr Rect elsewhere{{40, 50}, {300, 200}};

TEST_F(PanelOnDemandTest, IsHiddenAndUnmadeUntilShown) {
    panel_.setFrame(place, false);
    panel_.setOpacity(0.5);
    panel_.orderOut();
    EXPECT_FALSE(panel_.isVisible());
    EXPECT_EQ(panel_.frame(), place);
    EXPECT_EQ(made_, 0);
}

TEST_F(PanelOnDemandTest, IsMadeOnceWhereItWasPut) {
    panel_.setFrame(place, true);
    panel_.setOpacity(0.5);
    panel_.orderFront();
    panel_.orderFront();
    EXPECT_EQ(made_, 1);
    EXPECT_EQ(real_->fronts, 2);
    EXPECT_EQ(real_->moves, (std::vector<test::FakePanel::Move>{{place, false}}));
    EXPECT_EQ(real_->opacity, 0.5);
    EXPECT_TRUE(panel_.isVisible());
}

TEST_F(PanelOnDemandTest, PassesOnWhatComesLater) {
    panel_.orderFront();
    panel_.setFrame(elsewhere, true);
    panel_.setOpacity(0.25);
    EXPECT_EQ(real_->moves.back(), (test::FakePanel::Move{elsewhere, true}));
    EXPECT_EQ(real_->opacity, 0.25);
    panel_.orderOut();
    EXPECT_FALSE(real_->isVisible());
    EXPECT_FALSE(panel_.isVisible());
    EXPECT_EQ(panel_.frame(), elsewhere);
}

TEST_F(PanelOnDemandTest, TellsWhatTheUserDid) {
    int drags = 0;
    int closes = 0;
    panel_.onFrameChanged = [&] { ++drags; };
    panel_.onCloseRequested = [&] { ++closes; };
    panel_.orderFront();
    real_->dragTo(elsewhere);
    real_->pressClose();
    EXPECT_EQ(panel_.frame(), elsewhere);
    EXPECT_EQ(drags, 1);
    EXPECT_EQ(closes, 1);
}

TEST_F(PanelOnDemandTest, NeedsNobodyToTell) {
    panel_.orderFront();
    real_->dragTo(elsewhere);
    real_->pressClose();
    EXPECT_TRUE(panel_.isVisible());
}

}  // namespace
}  // namespace sonra
