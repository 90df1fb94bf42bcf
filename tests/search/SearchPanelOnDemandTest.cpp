#include "search/SearchPanelOnDemand.h"

#include <gtest/gtest.h>

#include "support/FakeSearchPanel.h"

namespace sonra {
namespace {

class SearchPanelOnDemandTest : public testing::Test {
  protected:
    int made_ = 0;
    test::FakeSearchPanel* real_ = nullptr;
    SearchPanelOnDemand panel_{[this] {
        ++made_;
        auto panel = std::make_unique<test::FakeSearchPanel>();
        real_ = panel.get();
        return panel;
    }};
};

TEST_F(SearchPanelOnDemandTest, IsHiddenAndUnmadeUntilOpened) {
    panel_.orderOut();
    EXPECT_FALSE(panel_.isVisible());
    EXPECT_EQ(panel_.query(), "");
    EXPECT_EQ(made_, 0);
}

TEST_F(SearchPanelOnDemandTest, IsMadeOnceAndToldEverything) {
    const Rect place{{10, 20}, {300, 200}};
    SearchRow row;
    row.pieces = {{"alpha", SearchRow::Role::name}};
    panel_.setQuery("alpha");
    panel_.setFrame(place);
    panel_.activate();
    panel_.setRows({row});
    panel_.select(0);
    panel_.setEmptyText("nothing");
    panel_.setFooter("hints");
    panel_.setScanningStrip("scanning");
    panel_.copy("id");
    EXPECT_EQ(made_, 1);
    EXPECT_TRUE(panel_.isVisible());
    EXPECT_EQ(panel_.query(), "alpha");
    EXPECT_EQ(real_->frame, place);
    EXPECT_EQ(real_->activations, 1);
    EXPECT_EQ(real_->texts(), std::vector<std::string>{"alpha"});
    EXPECT_EQ(real_->selected, 0U);
    EXPECT_EQ(real_->emptyText, "nothing");
    EXPECT_EQ(real_->footer, "hints");
    EXPECT_EQ(real_->strip, "scanning");
    EXPECT_EQ(real_->copied, std::vector<std::string>{"id"});
    panel_.orderOut();
    EXPECT_FALSE(real_->isVisible());
    EXPECT_FALSE(panel_.isVisible());
}

TEST_F(SearchPanelOnDemandTest, TellsWhatTheUserDid) {
    int typed = 0;
    std::vector<SearchPanel::Command> commands;
    std::vector<std::size_t> rows;
    panel_.onQueryChanged = [&] { ++typed; };
    panel_.onCommand = [&](SearchPanel::Command command) { commands.push_back(command); };
    panel_.onSelect = [&](std::size_t row) { rows.push_back(row); };
    panel_.activate();
    real_->type("beta");
    real_->press(SearchPanel::Command::cancel);
    real_->click(2);
    EXPECT_EQ(typed, 1);
    EXPECT_EQ(commands, std::vector{SearchPanel::Command::cancel});
    EXPECT_EQ(rows, std::vector<std::size_t>{2});
}

/// Its owner takes the callbacks away as it ends.
TEST_F(SearchPanelOnDemandTest, NeedsNobodyToTell) {
    panel_.activate();
    real_->type("beta");
    real_->press(SearchPanel::Command::cancel);
    real_->click(2);
    EXPECT_EQ(panel_.query(), "beta");
}

}  // namespace
}  // namespace sonra
