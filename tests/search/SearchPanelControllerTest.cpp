#include "search/SearchPanelController.h"

#include <gtest/gtest.h>

#include <chrono>

#include "search/ControlledSearchPanel.h"

namespace sonra::test {
namespace {

using Command = SearchPanel::Command;
using std::chrono::milliseconds;

/// Where and when the panel opens, when it searches, and what it tells of that.
class SearchPanelControllerTest : public ControlledSearchPanel {};

TEST_F(SearchPanelControllerTest, OpensInTheMiddleAndAt62PercentOfTheHeightFromBelow) {
    screens.visible = Rect{{100, 40}, {1920, 1200}};
    controller->open();
    EXPECT_DOUBLE_EQ(panel.frame.origin.x, 100 + 960 - 320);
    EXPECT_NEAR(panel.frame.origin.y + panel.frame.size.height, 40 + 1200 * 0.38, 1e-6);
    EXPECT_EQ(panel.frame.size, (Size{640, 420}));
}

TEST_F(SearchPanelControllerTest, IsKeptOnTheScreen) {
    screens.visible = Rect{{0, 28}, {1440, 872}};
    controller->open();
    EXPECT_EQ(panel.frame, (Rect{{400, 28}, {640, 420}}));
    screens.visible = Rect{{0, 28}, {600, 400}};
    controller->open();
    EXPECT_EQ(panel.frame, (Rect{{0, 28}, {640, 420}}));
}

TEST_F(SearchPanelControllerTest, OfTwoScreensTheMainOneIsTakenEvenIfItStoodOnTheOther) {
    screens.visible = Rect{{1920, 0}, {1440, 900}};
    screens.second = Rect{{0, 0}, {1920, 1080}};
    panel.frame = {{100, 100}, {640, 420}};
    controller->open();
    EXPECT_EQ(panel.frame.origin.x, 1920 + 720 - 320);
    screens.visible = Rect{{0, 0}, {1920, 1080}};
    controller->open();
    EXPECT_EQ(panel.frame.origin.x, 960 - 320) << "another one may become the main one";
}

TEST_F(SearchPanelControllerTest, OpensWithoutAScreenWhereItStands) {
    panel.frame = {{1, 2}, {640, 420}};
    screens.visible.reset();
    controller->open();
    EXPECT_TRUE(panel.isVisible());
    EXPECT_EQ(panel.frame, (Rect{{1, 2}, {640, 420}}));
}

TEST_F(SearchPanelControllerTest, OpeningSearchesAtOnce) {
    attached = {"22222222-b"};
    open();
    EXPECT_EQ(panel.activations, 1);
    EXPECT_EQ(panel.texts(),
              (std::vector<std::string>{"● 22222222 · tts · Fix the tailer",
                                        "11111111 · tts · Release notes",
                                        "33333333 · offload · Write tests for tts"}));
    EXPECT_EQ(panel.selected, 0U);
}

TEST_F(SearchPanelControllerTest, OpeningWithAQuerySearchesForItInsteadOfWhatWasTyped) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    panel.press(Command::cancel);
    panel.type("zzz");
    controller->open("offload");
    settle();
    EXPECT_EQ(panel.query(), "offload");
    const std::vector<std::string> found{"offload · 1 sessions · 2 hr. ago",
                                         "33333333 · offload · Write tests for tts"};
    EXPECT_EQ(panel.texts(), found);
    loop.advance(milliseconds(80));
    settle();
    EXPECT_EQ(panel.reloads, 4) << "what was typed before is not searched for once more";
    controller->open();
    settle();
    EXPECT_EQ(panel.texts(), found) << "without a query the last one stays";
    controller->open("");
    settle();
    EXPECT_EQ(panel.rows.size(), 3U);
}

TEST_F(SearchPanelControllerTest, TogglingShowsAndHides) {
    controller->toggle();
    EXPECT_TRUE(panel.isVisible());
    controller->toggle();
    EXPECT_FALSE(panel.isVisible());
    controller->toggle();
    controller->close();
    EXPECT_FALSE(panel.isVisible());
}

TEST_F(SearchPanelControllerTest, AQueryStarts80MillisecondsAfterTheLastKeystroke) {
    open();
    panel.type("o");
    loop.advance(milliseconds(79));
    panel.type("of");
    loop.advance(milliseconds(79));
    settle();
    EXPECT_EQ(panel.reloads, 1);
    loop.advance(milliseconds(1));
    settle();
    EXPECT_EQ(panel.reloads, 2);
    EXPECT_EQ(panel.texts(),
              (std::vector<std::string>{"offload · 1 sessions · 2 hr. ago",
                                        "33333333 · offload · Write tests for tts"}));
}

TEST_F(SearchPanelControllerTest, AResultThatArrivesAfterANewerKeystrokeIsIgnored) {
    occupy();
    controller->open();
    panel.type("offload");
    busy.signal();
    settle();
    EXPECT_EQ(panel.reloads, 0);
    loop.advance(milliseconds(80));
    settle();
    EXPECT_EQ(panel.reloads, 1);
    EXPECT_EQ(panel.rows.size(), 2U);
}

TEST_F(SearchPanelControllerTest, AResultOfAnOlderQueryIsIgnoredEvenIfTheClockStands) {
    occupy();
    controller->open();
    controller->open();
    busy.signal();
    settle();
    EXPECT_EQ(panel.reloads, 1);
}

TEST_F(SearchPanelControllerTest, AResultThatArrivesAfterTheControllerHasGoneIsDropped) {
    occupy();
    controller->open();
    controller.reset();
    busy.signal();
    settle();
    EXPECT_EQ(panel.reloads, 0);
    EXPECT_FALSE(panel.onQueryChanged);
}

TEST_F(SearchPanelControllerTest, BlanksAroundAQueryAreNoPartOfIt) {
    open();
    search("  zzz ");
    EXPECT_EQ(panel.emptyText, "No matches for zzz.");
    search("   ");
    EXPECT_EQ(panel.rows.size(), 3U);
}

TEST_F(SearchPanelControllerTest, AnEmptyCatalogueIsSaid) {
    sessions.clear();
    open();
    EXPECT_EQ(panel.emptyText, "No Claude sessions found in ~/.claude/projects");
}

TEST_F(SearchPanelControllerTest, ARunningIndexIsShownHalfASecondAfterTheQuery) {
    progress = {.total = 90, .done = 12, .inFlight = true};
    open();
    loop.advance(milliseconds(499));
    EXPECT_EQ(panel.strip, "");
    loop.advance(milliseconds(1));
    EXPECT_EQ(panel.strip, "Indexing… (12 / 90)");
    panel.press(Command::moveDown);
    EXPECT_EQ(panel.strip, "");
}

TEST_F(SearchPanelControllerTest, AnIndexThatRestsIsNotShown) {
    progress = {.total = 90, .done = 90, .inFlight = false};
    open();
    loop.advance(milliseconds(600));
    EXPECT_EQ(panel.strip, "");
}

TEST_F(SearchPanelControllerTest, AnOlderQueryShowsNoProgress) {
    progress = {.total = 90, .done = 12, .inFlight = true};
    open();
    loop.advance(milliseconds(450));
    panel.type("t");
    loop.advance(milliseconds(60));
    EXPECT_EQ(panel.strip, "");
    // The newer one does, half a second after it started.
    loop.advance(milliseconds(20));
    settle();
    loop.advance(milliseconds(500));
    EXPECT_EQ(panel.strip, "Indexing… (12 / 90)");
}

TEST_F(SearchPanelControllerTest, TheHotkeyIsCommandShiftFAndToggles) {
    controller->registerHotkey();
    EXPECT_EQ(hotkey.keyCode, 3U);
    EXPECT_EQ(hotkey.modifiers, 768U);
    hotkey.press();
    EXPECT_TRUE(panel.isVisible());
    hotkey.press();
    EXPECT_FALSE(panel.isVisible());
}

TEST_F(SearchPanelControllerTest, AHotkeyThatCannotBeHadIsSaidAndThePanelStillOpens) {
    hasHotkeys = false;
    testing::internal::CaptureStderr();
    controller->registerHotkey();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[search] failed to register ⌘⇧F\n");
    open();
    EXPECT_EQ(panel.rows.size(), 3U);
}

TEST_F(SearchPanelControllerTest, AHotkeyThatIsRefusedLaterIsSaidToo) {
    testing::internal::CaptureStderr();
    controller->registerHotkey();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    hotkey.refuse();
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[search] failed to register ⌘⇧F\n");
}

}  // namespace
}  // namespace sonra::test
