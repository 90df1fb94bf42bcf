#include "search/SearchPanelController.h"

#include <gtest/gtest.h>

#include <chrono>

#include "search/ControlledSearchPanel.h"

namespace sonra::test {
namespace {

using Command = SearchPanel::Command;
using std::chrono::milliseconds;

/// What keys do to the selection and to the row that is selected.
class SearchPanelKeys : public ControlledSearchPanel {};

TEST_F(SearchPanelKeys, PressingReturnTwiceOnAProjectRowExpandsAndCollapsesIt) {
    open();
    search("tts");
    ASSERT_EQ(panel.rows.size(), 4U);
    ASSERT_EQ(panel.rows[0].kind, SearchRow::Kind::project);
    panel.press(Command::activate);
    settle();
    EXPECT_TRUE(panel.isVisible());
    EXPECT_TRUE(panel.rows[0].isExpanded);
    EXPECT_EQ(panel.texts(), (std::vector<std::string>{"tts · 2 sessions · 2 hr. ago",
                                                       "11111111 · tts · Release notes",
                                                       "22222222 · tts · Fix the tailer"}));
    panel.press(Command::activate);
    settle();
    EXPECT_FALSE(panel.rows[0].isExpanded);
    EXPECT_EQ(panel.rows.size(), 4U);
    EXPECT_TRUE(attaches.empty());
}

TEST_F(SearchPanelKeys, TheNextKeystrokeEndsTheExpansion) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    ASSERT_EQ(panel.rows.size(), 3U);
    search("tts");
    EXPECT_EQ(panel.rows.size(), 4U);
}

TEST_F(SearchPanelKeys, UpAtTheTopAndDownAtTheBottomStayPut) {
    open();
    panel.press(Command::moveUp);
    EXPECT_EQ(panel.selected, 0U);
    panel.press(Command::moveDown);
    panel.press(Command::moveDown);
    EXPECT_EQ(panel.selected, 2U);
    panel.press(Command::moveDown);
    EXPECT_EQ(panel.selected, 2U);
    panel.press(Command::moveUp);
    EXPECT_EQ(panel.selected, 1U);
}

TEST_F(SearchPanelKeys, ReturnTakesTheFirstRowOfWhatWasTypedEvenBeforeTheQueryStarts) {
    open();
    panel.press(Command::moveDown);
    panel.type("project:offload");
    loop.advance(milliseconds(79));
    panel.press(Command::activate);
    EXPECT_TRUE(attaches.empty()) << "the row that is shown is not of this query";
    EXPECT_TRUE(panel.isVisible());
    settle();
    EXPECT_EQ(attaches, (std::vector<std::string>{"33333333-c /src/offload"}));
    EXPECT_FALSE(panel.isVisible());
    loop.advance(milliseconds(80));
    settle();
    EXPECT_EQ(panel.reloads, 2) << "it isn't searched for once more";
    EXPECT_EQ(attaches.size(), 1U);
}

TEST_F(SearchPanelKeys, ReturnWaitsForAQueryThatRuns) {
    open();
    occupy();
    panel.type("project:offload");
    loop.advance(milliseconds(80));
    panel.press(Command::activate);
    EXPECT_TRUE(attaches.empty());
    busy.signal();
    settle();
    EXPECT_EQ(attaches, (std::vector<std::string>{"33333333-c /src/offload"}));
}

TEST_F(SearchPanelKeys, ReturnOpensAProjectThatTheTypedQueryFindsFirst) {
    open();
    panel.type("tts");
    panel.press(Command::activate);
    settle();
    settle();
    EXPECT_TRUE(panel.rows.at(0).isExpanded);
    EXPECT_TRUE(attaches.empty());
}

TEST_F(SearchPanelKeys, ReturnTakesTheRowThatWasChosenAfterTheLastKeystroke) {
    open();
    panel.type("zzz");
    panel.press(Command::moveDown);
    panel.press(Command::activate);
    EXPECT_EQ(attaches, (std::vector<std::string>{"22222222-b /src/tts"}));
    open();
    search("t");
    panel.type("zz");
    panel.click(1);
    panel.press(Command::activate);
    EXPECT_EQ(attaches.size(), 2U);
}

TEST_F(SearchPanelKeys, ReturnIsForgottenWithTheNextKeystrokeAndWithThePanel) {
    open();
    panel.type("project:offload");
    panel.press(Command::activate);
    panel.type("project:tts");
    settle();
    loop.advance(milliseconds(80));
    settle();
    EXPECT_TRUE(attaches.empty());
    panel.type("project:offload");
    panel.press(Command::activate);
    panel.press(Command::cancel);
    settle();
    open();
    EXPECT_TRUE(attaches.empty());
    panel.type("zzz");
    panel.press(Command::activate);
    settle();
    EXPECT_TRUE(attaches.empty());
    EXPECT_TRUE(panel.isVisible());
}

TEST_F(SearchPanelKeys, WithoutRowsKeysDoNothing) {
    open();
    search("zzz");
    EXPECT_TRUE(panel.rows.empty());
    for (const auto command :
         {Command::moveUp, Command::moveDown, Command::activate, Command::copy})
        panel.press(command);
    EXPECT_FALSE(panel.selected);
    EXPECT_TRUE(panel.isVisible());
    EXPECT_TRUE(attaches.empty());
    EXPECT_TRUE(panel.copied.empty());
    EXPECT_EQ(panel.emptyText, "No matches for zzz.");
    EXPECT_EQ(panel.footer, "");
}

TEST_F(SearchPanelKeys, ReturnOnASessionHidesThePanelAndAttachesIt) {
    open();
    panel.press(Command::moveDown);
    panel.press(Command::activate);
    EXPECT_FALSE(panel.isVisible());
    EXPECT_FALSE(attachedWhileShown);
    EXPECT_EQ(attaches, (std::vector<std::string>{"22222222-b /src/tts"}));
}

TEST_F(SearchPanelKeys, CopyingTakesTheIdOfASessionAndNothingElse) {
    open();
    search("tts");
    panel.press(Command::copy);
    EXPECT_TRUE(panel.copied.empty());
    panel.press(Command::moveDown);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied, (std::vector<std::string>{"11111111-a"}));
}

TEST_F(SearchPanelKeys, EscapeHidesAndReopeningKeepsQueryResultsAndExpansion) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    panel.press(Command::cancel);
    EXPECT_FALSE(panel.isVisible());
    EXPECT_EQ(panel.query(), "tts");
    EXPECT_EQ(panel.rows.size(), 3U);
    sessions.push_back(meta("44444444-d", "/src/tts", "New"));
    open();
    EXPECT_EQ(panel.rows.size(), 4U);
    EXPECT_TRUE(panel.rows[0].isExpanded);
}

TEST_F(SearchPanelKeys, TheFooterFollowsTheSelection) {
    open();
    search("tts");
    EXPECT_EQ(panel.footer, "↵ expand · esc dismiss");
    panel.press(Command::moveDown);
    EXPECT_EQ(panel.footer, "↵ attach · ⌘C copy id · esc dismiss");
    panel.click(0);
    EXPECT_EQ(panel.footer, "↵ expand · esc dismiss");
    panel.click(2);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied.size(), 1U);
}

}  // namespace
}  // namespace sonra::test
