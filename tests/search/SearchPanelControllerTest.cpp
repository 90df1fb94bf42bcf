#include "search/SearchPanelController.h"

#include <gtest/gtest.h>

#include <optional>

#include "frame/Semaphore.h"
#include "frame/WorkerPool.h"
#include "support/FakeScreens.h"
#include "support/FakeSearchPanel.h"
#include "support/ManualLoop.h"

namespace sonra::test {
namespace {

using Command = SearchPanel::Command;
using std::chrono::milliseconds;

SessionMeta meta(const std::string& id, const std::string& cwd, const std::string& prompt) {
    SessionMeta session;
    session.sessionId = id;
    session.cwd = cwd;
    session.firstUserPrompt = prompt;
    session.source = "claude-code";
    session.mtime = 1'790'000'000 - 7200;
    return session;
}

class SearchPanelControllerTest : public testing::Test {
  protected:
    struct Hotkey {
        std::uint32_t keyCode = 0;
        std::uint32_t modifiers = 0;
        std::function<void()> press;
        std::function<void()> refuse;
    };

    SearchPanelControllerTest() {
        controller->setCallbacks({
            .currentAttachedIds = [this] { return attached; },
            .snapshot = [this] { return SessionSnapshot(sessions); },
            .reconcileProgress = [this] { return progress; },
            .onAttach =
                [this](const auto& id, const auto& cwd) {
                    attachedWhileShown = panel.isVisible();
                    attaches.push_back(id + " " + cwd);
                },
            .makeHotkey = [this](auto keyCode, auto modifiers, auto press,
                                 auto refuse) -> std::shared_ptr<void> {
                if (!hasHotkeys) return nullptr;
                hotkey = {keyCode, modifiers, press, refuse};
                return std::make_shared<int>();
            },
        });
    }
    ~SearchPanelControllerTest() override { pool.drain(); }

    /// Lets searches end and their results arrive.
    void settle() {
        pool.drain();
        loop.runPosted();
    }
    void open() {
        controller->open();
        settle();
    }
    void search(const std::string& query) {
        panel.type(query);
        loop.advance(milliseconds(80));
        settle();
    }
    /// The catalogue loses a session, and the open panel hears of it.
    void vanish(const std::string& id) {
        std::erase_if(sessions, [&](const auto& session) { return session.sessionId == id; });
        controller->refresh();
        settle();
    }
    /// Until `busy` is released, no search begins.
    void occupy() {
        pool.post([this] { busy.wait(); });
    }

    ManualLoop loop;
    FakeScreens screens;
    FakeSearchPanel panel;
    std::set<std::string> attached;
    std::vector<SessionMeta> sessions{meta("11111111-a", "/src/tts", "Release notes"),
                                      meta("22222222-b", "/src/tts", "Fix the tailer"),
                                      meta("33333333-c", "/src/offload", "Write tests for tts")};
    ReconcileProgress progress;
    std::vector<std::string> attaches;
    bool attachedWhileShown = false;
    bool hasHotkeys = true;
    Hotkey hotkey;
    double wallClock = 1'790'000'000;
    Semaphore busy{0};
    WorkerPool pool{1};
    std::optional<SearchPanelController> controller{
        std::in_place, loop, pool, screens, panel, [this] { return wallClock; }};
};

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

TEST_F(SearchPanelControllerTest, PressingReturnTwiceOnAProjectRowExpandsAndCollapsesIt) {
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

TEST_F(SearchPanelControllerTest, TheNextKeystrokeEndsTheExpansion) {
    open();
    search("tts");
    panel.press(Command::activate);
    settle();
    ASSERT_EQ(panel.rows.size(), 3U);
    search("tts");
    EXPECT_EQ(panel.rows.size(), 4U);
}

TEST_F(SearchPanelControllerTest, UpAtTheTopAndDownAtTheBottomStayPut) {
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

TEST_F(SearchPanelControllerTest, ReturnTakesTheFirstRowOfWhatWasTypedEvenBeforeTheQueryStarts) {
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

TEST_F(SearchPanelControllerTest, ReturnWaitsForAQueryThatRuns) {
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

TEST_F(SearchPanelControllerTest, ReturnOpensAProjectThatTheTypedQueryFindsFirst) {
    open();
    panel.type("tts");
    panel.press(Command::activate);
    settle();
    settle();
    EXPECT_TRUE(panel.rows.at(0).isExpanded);
    EXPECT_TRUE(attaches.empty());
}

TEST_F(SearchPanelControllerTest, ReturnTakesTheRowThatWasChosenAfterTheLastKeystroke) {
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

TEST_F(SearchPanelControllerTest, ReturnIsForgottenWithTheNextKeystrokeAndWithThePanel) {
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

TEST_F(SearchPanelControllerTest, AChangeOfTheCatalogueIsShownAndLeavesTheSelectionWhereItIs) {
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

TEST_F(SearchPanelControllerTest, InPlaceOfASelectedRowThatVanishesItsNeighbourIsSelected) {
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

TEST_F(SearchPanelControllerTest, ReturnLeavesARowAloneThatJustTookTheSelectedOnesPlace) {
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

TEST_F(SearchPanelControllerTest, ReturnTakesARowThatTookAnotherOnesPlaceOnceItIsChosen) {
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

TEST_F(SearchPanelControllerTest, AChangeThatIsNotToBeSeenMovesNothing) {
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

TEST_F(SearchPanelControllerTest, AChangeKeepsAnOpenProjectOpen) {
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

TEST_F(SearchPanelControllerTest, AnOpenProjectWhoseLastSessionVanishesIsOpenNoMore) {
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

TEST_F(SearchPanelControllerTest, AChangeNeitherHurriesNorReplacesWhatIsTyped) {
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

TEST_F(SearchPanelControllerTest, WithoutRowsKeysDoNothing) {
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

TEST_F(SearchPanelControllerTest, ReturnOnASessionHidesThePanelAndAttachesIt) {
    open();
    panel.press(Command::moveDown);
    panel.press(Command::activate);
    EXPECT_FALSE(panel.isVisible());
    EXPECT_FALSE(attachedWhileShown);
    EXPECT_EQ(attaches, (std::vector<std::string>{"22222222-b /src/tts"}));
}

TEST_F(SearchPanelControllerTest, CopyingTakesTheIdOfASessionAndNothingElse) {
    open();
    search("tts");
    panel.press(Command::copy);
    EXPECT_TRUE(panel.copied.empty());
    panel.press(Command::moveDown);
    panel.press(Command::copy);
    EXPECT_EQ(panel.copied, (std::vector<std::string>{"11111111-a"}));
}

TEST_F(SearchPanelControllerTest, EscapeHidesAndReopeningKeepsQueryResultsAndExpansion) {
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

TEST_F(SearchPanelControllerTest, TheFooterFollowsTheSelection) {
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
