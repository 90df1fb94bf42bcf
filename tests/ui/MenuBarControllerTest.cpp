#include "ui/MenuBarController.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <optional>
#include <set>
#include <tuple>

#include "support/FakeStatusItem.h"

namespace sonra {
namespace {

using test::FakeStatusItem;
using test::words;
using Titles = std::vector<std::string>;
using Icon = StatusItem::Icon;
using Image = MenuRow::Image;

constexpr double now = 1'800'000'000'000;

DiscoveredRow found(const std::string& id, const std::string& cwd = "/home/me/proj") {
    DiscoveredRow row;
    row.id = id;
    row.cwd = cwd;
    row.source = "claude-code";
    return row;
}

AttachedSession attached(const std::string& id) {
    return {id, "/home/me/proj", "claude-code", "", ""};
}

std::chrono::nanoseconds processorTime() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

template <typename Body>
std::chrono::nanoseconds processorTime(Body body) {
    const auto start = processorTime();
    body();
    return processorTime() - start;
}

struct MenuBar : testing::Test {
    MenuBar() {
        menu.emplace(item, [] { return now; });
        menu->setCallbacks(recording());
    }

    MenuBarController::Callbacks recording() {
        const auto note = [this](std::string what) {
            return [this, what = std::move(what)] { calls.push_back(what); };
        };
        MenuBarController::Callbacks callbacks;
        callbacks.onPlayPause = note("playPause");
        callbacks.onSkip = note("skip");
        callbacks.onStop = note("stop");
        callbacks.onToggleMute = note("mute");
        callbacks.onToggleCaptions = note("captions");
        callbacks.onVolume = [this](std::int64_t to) {
            calls.push_back("volume " + std::to_string(to));
        };
        callbacks.onSpeed = [this](double to) { calls.push_back("speed " + std::to_string(to)); };
        callbacks.onAttach = [this](const DiscoveredRow& row) { attachedRows.push_back(row); };
        callbacks.onDetach = [this](const std::string& id) { calls.push_back("detach " + id); };
        callbacks.onAbout = note("about");
        callbacks.onToggleStartAtLogin = note("login");
        callbacks.onQuit = note("quit");
        return callbacks;
    }

    /// Shows the picture after `change` has had its way with it.
    template <typename Change>
    void show(Change change) {
        change(picture);
        menu->reflect(picture);
    }
    void show() { menu->reflect(picture); }

    FakeStatusItem item;
    std::optional<MenuBarController> menu;
    MenuBarController::Picture picture;
    std::vector<std::string> calls;
    std::vector<DiscoveredRow> attachedRows;
};

TEST_F(MenuBar, LayoutFromTheTop) {
    show();
    EXPECT_EQ(item.titles(),
              (Titles{"Sonra  •  idle", "-", "Play", "Skip", "Stop", "Mute", "Captions", "-",
                      "Volume", "Speed", "-", "Narrating: (none)", "Attach session…  (none)", "-",
                      "About Sonra", "Start at login", "Quit Sonra"}));
}

TEST_F(MenuBar, RowsHaveIdsOfTheirOwn) {
    show();
    std::set<std::string> ids;
    for (const auto& row : item.rows) ids.insert(row.id);
    EXPECT_EQ(ids.size(), item.rows.size());
}

TEST_F(MenuBar, EveryActionCallsBack) {
    show([](auto& p) { p.isPlaying = true; });
    for (const auto* id :
         {"playPause", "skip", "stop", "mute", "captions", "about", "login", "quit"}) {
        item.row(id).onClick();
        EXPECT_EQ(calls.back(), id);
    }
}

TEST_F(MenuBar, PlayItemOffersWhatCanBeDone) {
    const auto shows = [this](bool playing, bool paused) {
        show([&](auto& p) {
            p.isPlaying = playing;
            p.state.paused = paused;
        });
        const auto& row = item.row("playPause");
        return std::tuple(words(row.title), row.image, row.isEnabled);
    };
    EXPECT_EQ(shows(true, false), std::tuple("Pause", Image::pause, true));
    EXPECT_EQ(shows(false, false), std::tuple("Play", Image::play, false));
    EXPECT_EQ(shows(false, true), std::tuple("Resume", Image::play, true));
    EXPECT_EQ(shows(true, true), std::tuple("Resume", Image::play, true));
}

TEST_F(MenuBar, SkipAndStopOnlyWhilePlaying) {
    show();
    EXPECT_FALSE(item.row("skip").isEnabled || item.row("stop").isEnabled);
    show([](auto& p) { p.isPlaying = true; });
    EXPECT_TRUE(item.row("skip").isEnabled && item.row("stop").isEnabled);
    EXPECT_EQ(item.row("skip").image, Image::skip);
    EXPECT_EQ(item.row("stop").image, Image::stop);
}

TEST_F(MenuBar, MuteAndCaptionsKeepTheirTitlesAndAreChecked) {
    show([](auto& p) { p.state.muted = true; });
    EXPECT_EQ(item.row("mute").isChecked, true);
    EXPECT_EQ(item.row("captions").isChecked, false);
    show([](auto& p) {
        p.state.muted = false;
        p.state.captions = true;
    });
    EXPECT_EQ(item.row("mute").isChecked, false);
    EXPECT_EQ(item.row("captions").isChecked, true);
    EXPECT_EQ(words(item.row("mute").title), "Mute");
    EXPECT_EQ(words(item.row("captions").title), "Captions");
}

TEST_F(MenuBar, StatusLineShowsTheSnippetsBeginning) {
    const std::string e48(48, 'e');
    show([&](auto& p) {
        p.isPlaying = true;
        p.currentSnippet = e48 + "x";
    });
    EXPECT_EQ(words(item.row("status").title), "Narrating  •  " + e48);
    EXPECT_FALSE(item.row("status").isEnabled);
    show([](auto& p) { p.currentSnippet.clear(); });
    EXPECT_EQ(words(item.row("status").title), "Narrating  •  ");
}

TEST_F(MenuBar, LevelsAreLabelledAndChosen) {
    show([](auto& p) {
        p.state.volume = 85;
        p.state.speed = 2;
    });
    EXPECT_EQ(item.row("volume").trailing, "85%");
    EXPECT_EQ(item.row("speed").trailing, "2x");
    FakeStatusItem::rowIn(item.open("volume"), "30%").onClick();
    FakeStatusItem::rowIn(item.open("speed"), "1.5x").onClick();
    EXPECT_EQ(calls, (Titles{"volume 30", "speed 1.500000"}));
    EXPECT_EQ(FakeStatusItem::rowIn(item.open("volume"), "90%").isChecked, true);
}

TEST_F(MenuBar, NoSessions) {
    show();
    EXPECT_EQ(words(item.row("sessions").title), "Narrating: (none)");
    const auto rows = item.open("sessions");
    EXPECT_EQ(FakeStatusItem::titlesOf(rows), Titles{"Nothing being narrated"});
    EXPECT_FALSE(rows[0].isEnabled);
}

TEST_F(MenuBar, NoCandidates) {
    show();
    EXPECT_EQ(words(item.row("attach").title), "Attach session…  (none)");
    const auto rows = item.open("attach");
    EXPECT_EQ(FakeStatusItem::titlesOf(rows), Titles{"No sessions detected"});
    EXPECT_FALSE(rows[0].isEnabled);
}

TEST_F(MenuBar, ReflectDoesNotPopulateTheAttachMenu) {
    int clockReadings = 0;
    MenuBarController own(item, [&] {
        ++clockReadings;
        return now;
    });
    picture.discovered = {found("a")};
    own.reflect(picture);
    EXPECT_EQ(clockReadings, 0);
    EXPECT_EQ(words(item.row("attach").title), "Attach session…");
    EXPECT_EQ(item.open("attach").size(), 1U);
    EXPECT_EQ(clockReadings, 1);
}

/// The rows of these sessions have folders of a megabyte to show: whoever makes them is noticed.
TEST_F(MenuBar, ReflectDoesNotPopulateTheSessionsMenu) {
    for (int i = 0; i < 20; ++i) {
        picture.sessions.push_back(attached(std::to_string(i)));
        picture.sessions.back().cwd += std::string(1'000'000, 'x');
    }
    auto fastest = std::chrono::nanoseconds::max();
    for (int i = 0; i < 5; ++i) {
        auto own = picture;
        fastest = std::min(fastest, processorTime([&] { menu->reflect(std::move(own)); }));
    }
    EXPECT_EQ(words(item.row("sessions").title), "Narrating: 20");
    EXPECT_LT(fastest * 10,
              processorTime([this] { EXPECT_EQ(item.open("sessions").size(), 22U); }));
}

/// The rows of the first picture, filled only now.
TEST_F(MenuBar, SubmenusAreFilledWhenTheyOpen) {
    show([](auto& p) {
        p.sessions = {attached("a")};
        p.discovered = {found("c")};
    });
    const auto openSessions = item.row("sessions").populate;
    const auto openAttach = item.row("attach").populate;
    show([](auto& p) {
        p.sessions = {attached("b")};
        p.discovered = {found("d")};
    });
    EXPECT_EQ(openSessions().front().id, "detach:b");
    EXPECT_EQ(openAttach().front().id, "attach:d");
}

TEST_F(MenuBar, TwoSessionsTwoStopRowsAndOneForAll) {
    show([](auto& p) { p.sessions = {attached("aaaa"), attached("bbbb")}; });
    EXPECT_EQ(words(item.row("sessions").title), "Narrating: 2");
    const auto rows = menu->populateSessionsMenu();
    EXPECT_EQ(FakeStatusItem::titlesOf(rows),
              (Titles{"CCproj  aaaa", "CCproj  bbbb", "-", "Stop narrating all sessions"}));
    EXPECT_EQ(rows[0].image, Image::detach);
    EXPECT_EQ(rows[0].imageDescription, "Detach");
    EXPECT_EQ(rows[0].toolTip, "Detach aaaa\n/home/me/proj");
    rows[3].onClick();
    EXPECT_EQ(calls, (Titles{"detach aaaa", "detach bbbb"}));
}

TEST_F(MenuBar, OneSessionNoStopAllRow) {
    show([](auto& p) { p.sessions = {attached("aaaa")}; });
    EXPECT_EQ(words(item.row("sessions").title), "Narrating: 1");
    EXPECT_EQ(FakeStatusItem::titlesOf(menu->populateSessionsMenu()), Titles{"CCproj  aaaa"});
}

TEST_F(MenuBar, StopRowDispatchesAlsoAfterItHasLeftTheMenu) {
    show([](auto& p) { p.sessions = {attached("aaaa")}; });
    const auto stale = menu->populateSessionsMenu().front();
    stale.onClick();
    show([](auto& p) { p.sessions.clear(); });
    ASSERT_EQ(menu->populateSessionsMenu().front().id, "placeholder");
    stale.onClick();
    EXPECT_EQ(calls, (Titles{"detach aaaa", "detach aaaa"}));
}

TEST_F(MenuBar, StaleRowCallsTheCallbackOfNow) {
    show();
    const auto quit = item.row("quit");
    bool replaced = false;
    menu->setCallbacks({.onQuit = [&] { replaced = true; }});
    quit.onClick();
    EXPECT_TRUE(replaced);
    EXPECT_TRUE(calls.empty());
}

TEST_F(MenuBar, RowsOutliveTheController) {
    show([](auto& p) { p.sessions = {attached("aaaa")}; });
    const auto row = menu->populateSessionsMenu().front();
    menu.reset();
    row.onClick();
    EXPECT_TRUE(item.open("sessions").empty());
    EXPECT_TRUE(calls.empty());
}

TEST_F(MenuBar, AttachRowHandsOverTheWholeRow) {
    auto row = found("a");
    row.transcript = "/t.jsonl";
    row.branch = "main";
    row.title = "T";
    show([&](auto& p) { p.discovered = {row}; });
    item.open("attach").front().onClick();
    EXPECT_EQ(attachedRows, std::vector{row});
}

TEST_F(MenuBar, AttachedSessionIsNoCandidate) {
    show([](auto& p) {
        p.sessions = {attached("a")};
        p.discovered = {found("a")};
    });
    EXPECT_EQ(words(item.row("attach").title), "Attach session…  (none)");
}

TEST_F(MenuBar, RecentSessionsAreOfferedToo) {
    show([](auto& p) {
        p.discovered = {found("a")};
        p.recent = {found("a"), found("b", "/x/other")};
    });
    EXPECT_EQ(words(item.row("attach").title), "Attach session…");
    EXPECT_EQ(FakeStatusItem::titlesOf(item.open("attach")), (Titles{"CCproj", "CCother"}));
}

TEST_F(MenuBar, OnlyCollidingRowsShowTheirIds) {
    show([](auto& p) {
        p.discovered = {found("aaaaaaaaaa", "/x/proj"), found("bbbbbbbbbb", "/y/proj"),
                        found("cccccccccc", "/x/other")};
    });
    EXPECT_EQ(FakeStatusItem::titlesOf(item.open("attach")),
              (Titles{"CCproj (aaaaaaaa)", "CCproj (bbbbbbbb)", "CCother"}));
}

TEST_F(MenuBar, StartAtLoginFollowsTheAgent) {
    show([](auto& p) { p.isLaunchAgentInstalled = true; });
    EXPECT_EQ(words(item.row("login").title), "✓ Start at login");
    show([](auto& p) { p.isLaunchAgentInstalled = false; });
    EXPECT_EQ(words(item.row("login").title), "Start at login");
}

TEST_F(MenuBar, StartAtLoginNeedsACallback) {
    auto callbacks = recording();
    callbacks.onToggleStartAtLogin = nullptr;
    menu->setCallbacks(callbacks);
    show();
    EXPECT_FALSE(item.has("login"));
}

TEST_F(MenuBar, IconAndToolTip) {
    const auto shows = [this](bool playing, bool muted, bool synthesizing, bool paused) {
        show([&](auto& p) {
            p.isPlaying = playing;
            p.isSynthesizing = synthesizing;
            p.state.muted = muted;
            p.state.paused = paused;
        });
        return std::pair(item.icon, item.toolTip);
    };
    EXPECT_EQ(shows(false, false, false, false), std::pair(Icon::idle, std::string("Sonra")));
    EXPECT_EQ(shows(true, false, false, false),
              std::pair(Icon::narrating, std::string("Sonra (narrating)")));
    EXPECT_EQ(shows(true, false, true, true),
              std::pair(Icon::synthesizing, std::string("Sonra (synthesizing)")));
    EXPECT_EQ(shows(true, true, true, true), std::pair(Icon::muted, std::string("Sonra (muted)")));
    EXPECT_EQ(shows(false, false, false, true), std::pair(Icon::paused, std::string("Sonra")));
}

TEST_F(MenuBar, IconChangesBetweenPictures) {
    show();
    menu->setPlaying(true, false);
    EXPECT_EQ(item.icon, Icon::narrating);
    menu->setSynthesizing(true);
    EXPECT_EQ(item.toolTip, "Sonra (synthesizing)");
    menu->setPlaying(true, true);
    EXPECT_EQ(item.icon, Icon::muted);
    menu->setSynthesizing(false);
    menu->setPlaying(false, false);
    EXPECT_EQ(item.icon, Icon::idle);
    EXPECT_EQ(item.toolTip, "Sonra");
}

}  // namespace
}  // namespace sonra
