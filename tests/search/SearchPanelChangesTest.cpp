#include "search/SearchPanelController.h"

#include <gtest/gtest.h>

#include <chrono>

#include "search/ControlledSearchPanel.h"

namespace sonra::test {
namespace {

using Command = SearchPanel::Command;
using std::chrono::milliseconds;

/// What the open panel makes of changes of the catalogue.
class SearchPanelChanges : public ControlledSearchPanel {};

TEST_F(SearchPanelChanges, AChangeOfTheCatalogueIsShownAndLeavesTheSelectionWhereItIs) {
    open();
    panel.press(Command::moveDown);
    sessions.insert(sessions.begin(), meta("44444444-d", "/src/new", "New"));
    controller->refresh();
    settle();
    ASSERT_EQ(panel.rows.size(), 4U);
    EXPECT_EQ(panel.selected, 2U);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied, (std::vector<std::string>{"22222222-b"}));
    sessions.clear();
    controller->refresh();
    settle();
    EXPECT_TRUE(panel.rows.empty());
    EXPECT_FALSE(panel.selected);
    sessions.push_back(meta("44444444-d", "/src/new", "New"));
    controller->refresh();
    settle();
    EXPECT_EQ(panel.selected, 0U);
}

TEST_F(SearchPanelChanges, InPlaceOfASelectedRowThatVanishesItsNeighbourIsSelected) {
    open();
    panel.press(Command::moveDown);
    sessions.insert(sessions.begin(), meta("44444444-d", "/src/new", "New"));
    vanish("22222222-b");
    EXPECT_EQ(panel.selected, 2U);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied, (std::vector<std::string>{"33333333-c"}));
    vanish("33333333-c");
    EXPECT_EQ(panel.selected, 1U) << "the last row's neighbour is the one before it";
    vanish("11111111-a");
    EXPECT_EQ(panel.selected, 0U);
    sessions = {meta("55555555-e", "/src/new", "Newer"), meta("66666666-f", "/src/new", "Newest")};
    controller->refresh();
    settle();
    EXPECT_EQ(panel.selected, 0U) << "no row of before is left";
}

TEST_F(SearchPanelChanges, ReturnLeavesARowAloneThatJustTookTheSelectedOnesPlace) {
    open();
    panel.press(Command::moveDown);
    vanish("22222222-b");
    ASSERT_EQ(panel.selected, 1U);
    panel.press(Command::activate);
    loop.advance(milliseconds(999));
    panel.press(Command::activate);
    EXPECT_TRUE(attaches.empty());
    EXPECT_TRUE(panel.isVisible());
    loop.advance(milliseconds(1));
    panel.press(Command::activate);
    EXPECT_EQ(attaches, (std::vector<std::string>{"33333333-c /src/offload"}));
}

TEST_F(SearchPanelChanges, ReturnTakesARowThatTookAnotherOnesPlaceOnceItIsChosen) {
    open();
    vanish("11111111-a");
    panel.press(Command::activate);
    EXPECT_TRUE(attaches.empty()) << "the first row may be meant without having been chosen";
    panel.click(0);
    panel.press(Command::activate);
    EXPECT_EQ(attaches, (std::vector<std::string>{"22222222-b /src/tts"}));
    open();
    vanish("22222222-b");
    panel.type("project:offload");
    panel.press(Command::activate);
    settle();
    EXPECT_EQ(attaches.back(), "33333333-c /src/offload") << "what is typed is another query";
}

TEST_F(SearchPanelChanges, AChangeThatIsNotToBeSeenMovesNothing) {
    open();
    panel.press(Command::moveDown);
    progress = {.total = 9, .done = 1, .inFlight = true};
    sessions[2].gitBranch = "main";
    controller->refresh();
    settle();
    EXPECT_EQ(panel.reloads, 1);
    EXPECT_EQ(panel.selected, 1U);
    controller->close();
    sessions.pop_back();
    controller->refresh();
    settle();
    EXPECT_EQ(panel.rows.size(), 3U) << "a hidden panel waits until it is opened";
}

TEST_F(SearchPanelChanges, AChangeKeepsAnOpenProjectOpen) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    panel.press(Command::moveDown);
    sessions.insert(sessions.begin(), meta("44444444-d", "/src/tts", "tts first"));
    controller->refresh();
    settle();
    EXPECT_EQ(panel.rows.size(), 4U);
    EXPECT_TRUE(panel.rows[0].isExpanded);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied, (std::vector<std::string>{"11111111-a"}));
}

TEST_F(SearchPanelChanges, AnOpenProjectWhoseLastSessionVanishesIsOpenNoMore) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    vanish("11111111-a");
    EXPECT_EQ(panel.rows.size(), 2U);
    EXPECT_TRUE(panel.rows[0].isExpanded);
    vanish("22222222-b");
    EXPECT_EQ(panel.texts(),
              (std::vector<std::string>{"33333333 · offload · Write tests for tts"}));
    sessions.push_back(meta("44444444-d", "/src/tts", "New"));
    controller->refresh();
    settle();
    ASSERT_EQ(panel.rows.size(), 3U);
    EXPECT_FALSE(panel.rows[0].isExpanded);
}

TEST_F(SearchPanelChanges, AChangeNeitherHurriesNorReplacesWhatIsTyped) {
    open();
    panel.press(Command::moveDown);
    panel.type("project:offload");
    controller->refresh();
    settle();
    EXPECT_EQ(panel.reloads, 1);
    loop.advance(milliseconds(80));
    controller->refresh();
    panel.press(Command::activate);
    settle();
    EXPECT_EQ(attaches, (std::vector<std::string>{"33333333-c /src/offload"}));
}

}  // namespace
}  // namespace sonra::test
