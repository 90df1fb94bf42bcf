#include "linux/X11Hotkeys.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PrivateXServer.h"
#include "linux/X11Link.h"
#include "support/LogWatch.h"
#include "support/PollLoop.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

KeyChord superShift(std::uint32_t keysym, const char* name, std::uint8_t position) {
    return {keysym, name, position, true, false, false, true};
}

const KeyChord chordF = superShift('f', "f", 33);
const KeyChord chordZ = superShift('z', "z", 44);

// Keys of the keyboard by their place.
constexpr auto placeF = "41";
constexpr auto placeY = "29";
constexpr auto placeZ = "52";

class X11HotkeysTest : public testing::Test {
  protected:
    X11HotkeysTest() { listen(hotkeys); }

    void listen(X11Hotkeys& to) {
        to.setHandlers(
            {[this](std::uint32_t id) { pressed.push_back(id); },
             [this](std::uint32_t, const std::string& why) { refusals.push_back(why); }});
    }
    void press(const std::string& key) const {
        server.xdotool({"keydown", "Super_L", "keydown", "Shift_L"});
        server.xdotool({"key", key});
        server.xdotool({"keyup", "Shift_L", "keyup", "Super_L"});
    }
    void pressLast() const {
        server.xdotool({"keydown", "Control_L", "key", "F8", "keyup", "Control_L"});
    }
    /// Presses the second chord behind what is tested: when that one has arrived, all before has.
    std::vector<std::uint32_t> pressesSoFar() {
        pressLast();
        EXPECT_TRUE(loop.runUntil([&] { return !pressed.empty() && pressed.back() == last; }));
        auto seen = std::exchange(pressed, {});
        if (!seen.empty()) seen.pop_back();
        return seen;
    }
    /// Presses a chord until it arrives as `id`, as a user would whose first press was lost.
    bool pressUntilFired(const std::string& key, std::uint32_t id) {
        const auto hasFired = [&] { return std::ranges::count(pressed, id) > 0; };
        return loop.runUntil([&] {
            press(key);
            return loop.runUntil(hasFired, 50ms);
        });
    }
    void registerLast() {
        ASSERT_TRUE(hotkeys.registerHotKey(last, {0xffc5, "F8", 66, false, false, true}, "Last"));
    }
    /// The modifiers that are on now.
    [[nodiscard]] unsigned modifiers() const {
        const auto link = X11Link::open(server.display(), test::patient);
        const auto state =
            link->reply<xcb_query_pointer_reply_t>(xcb_query_pointer(link->get(), link->root()));
        return state->mask & 0xffU;
    }
    /// Needs the second chord. Its press comes behind the news, and behind what they lead to.
    void setLayout(const char* layout, const std::vector<std::string>& more = {}) {
        std::vector<std::string> command{"setxkbmap", "-layout", layout};
        command.insert(command.end(), more.begin(), more.end());
        static_cast<void>(server.run(command));
        EXPECT_EQ(pressesSoFar(), std::vector<std::uint32_t>());
    }

    static constexpr std::uint32_t last = 99;
    test::PollLoop loop;
    test::PrivateXServer server;
    X11Hotkeys hotkeys{loop, server.display(), test::patient};
    std::vector<std::uint32_t> pressed;
    std::vector<std::string> refusals;
};

using Ids = std::vector<std::uint32_t>;

TEST_F(X11HotkeysTest, FiresOnceWhenAnotherProgramHasTheFocus) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    const auto terminal = server.start("xterm");
    server.xdotool({"search", "--sync", "--onlyvisible", "--class", "xterm", "windowfocus"});
    ASSERT_NE(server.run({"xdotool", "getwindowfocus", "getwindowpid"}), "");
    press("f");
    EXPECT_EQ(pressesSoFar(), Ids{1});
}

TEST_F(X11HotkeysTest, OtherModifiersAreOtherChords) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    server.xdotool({"key", "f"});
    server.xdotool({"key", "super+f"});
    server.xdotool({"key", "super+shift+ctrl+f"});
    server.xdotool({"key", "super+shift+g"});
    EXPECT_EQ(pressesSoFar(), Ids{});
    auto withAlt = chordF;
    withAlt.option = true;
    ASSERT_TRUE(hotkeys.registerHotKey(2, withAlt, "Other"));
    server.xdotool({"key", "super+shift+alt+f"});
    press("f");
    EXPECT_EQ(pressesSoFar(), (Ids{2, 1}));
}

TEST_F(X11HotkeysTest, FiresWhateverTheLocksAre) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    const unsigned caps = XCB_MOD_MASK_LOCK;
    const unsigned num = XCB_MOD_MASK_2;
    server.xdotool({"key", "Num_Lock"});
    ASSERT_EQ(modifiers(), num);
    press(placeF);
    server.xdotool({"key", "Caps_Lock"});
    ASSERT_EQ(modifiers(), num | caps);
    press(placeF);
    server.xdotool({"key", "Num_Lock"});
    ASSERT_EQ(modifiers(), caps);
    press(placeF);
    EXPECT_EQ(pressesSoFar(), (Ids{1, 1, 1}));
}

TEST_F(X11HotkeysTest, AHeldKeyFiresOnce) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    server.xdotool({"keydown", "Super_L", "keydown", "Shift_L", "keydown", "f"});
    // Longer than the server waits before it repeats a key.
    EXPECT_FALSE(loop.runUntil([&] { return pressed.size() > 1; }, 1500ms));
    server.xdotool({"keyup", "f", "keyup", "Shift_L", "keyup", "Super_L"});
    press("f");
    EXPECT_EQ(pressesSoFar(), (Ids{1, 1}));
}

TEST_F(X11HotkeysTest, UnregisteringFreesTheChordForOthers) {
    test::LogWatch log;
    log.expect("global hotkey is taken");
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    X11Hotkeys other(loop, server.display(), test::patient);
    listen(other);
    EXPECT_FALSE(other.registerHotKey(7, chordF, "Theirs"));
    hotkeys.unregisterHotKey(1);
    hotkeys.unregisterHotKey(1);
    press("f");
    EXPECT_EQ(pressesSoFar(), Ids{});
    ASSERT_TRUE(other.registerHotKey(7, chordF, "Theirs"));
    press("f");
    ASSERT_TRUE(loop.runUntil([&] { return !pressed.empty(); }));
    EXPECT_EQ(pressesSoFar(), Ids{7});
}

TEST_F(X11HotkeysTest, ARefusedChordLeavesNothingBehind) {
    test::LogWatch log;
    log.expect("global hotkey is taken");
    // Another program has it with Num Lock on only.
    const auto other = X11Link::open(server.display(), test::patient);
    constexpr std::uint16_t state = XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_2;
    xcb_grab_key(other->get(), 0, other->root(), state, 41, XCB_GRAB_MODE_ASYNC,
                 XCB_GRAB_MODE_ASYNC);
    ASSERT_TRUE(other->sync());
    EXPECT_FALSE(hotkeys.registerHotKey(1, chordF, "Search"));
    X11Hotkeys third(loop, server.display(), test::patient);
    listen(third);
    xcb_ungrab_key(other->get(), 41, other->root(), state);
    ASSERT_TRUE(other->sync());
    ASSERT_TRUE(third.registerHotKey(7, chordF, "Theirs"));
    press("f");
    ASSERT_TRUE(loop.runUntil([&] { return !pressed.empty(); }));
    EXPECT_EQ(pressed, Ids{7});
}

TEST_F(X11HotkeysTest, TheSameChordTwiceIsRefused) {
    test::LogWatch log;
    log.expect("global hotkey is taken");
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    EXPECT_FALSE(hotkeys.registerHotKey(2, chordF, "Again"));
    EXPECT_EQ(log.records("global hotkey is taken").at(0)["result"]["reason"], "already in use");
}

TEST_F(X11HotkeysTest, FollowsTheKeyToItsPlaceInAnotherLayout) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordZ, "Undo"));
    press(placeZ);
    EXPECT_EQ(pressesSoFar(), Ids{1});
    setLayout("de");
    press(placeZ);
    EXPECT_EQ(pressesSoFar(), Ids{}) << "there is y now";
    press(placeY);
    EXPECT_EQ(pressesSoFar(), Ids{1});
    setLayout("us");
    press(placeZ);
    EXPECT_EQ(pressesSoFar(), Ids{1});
}

TEST_F(X11HotkeysTest, StaysAtItsPlaceWhereTheLayoutHasNoSuchLetter) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    for (const auto* const layout : {"ru", "ru,us", "us,ru"}) {
        setLayout(layout);
        press(placeF);
        EXPECT_EQ(pressesSoFar(), Ids{1}) << layout;
    }
    EXPECT_TRUE(refusals.empty());
}

TEST_F(X11HotkeysTest, FiresInTheSecondOfTwoLayouts) {
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    setLayout("us,ru", {"-option", "grp:rctrl_toggle"});
    server.xdotool({"key", "105"});  // the right Control key
    press(placeF);
    EXPECT_EQ(pressesSoFar(), Ids{1});
}

TEST_F(X11HotkeysTest, AChordThatTheNewLayoutHasElsewhereMayBeTakenThere) {
    test::LogWatch log;
    log.expect("global hotkey can't be had");
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordZ, "Undo"));
    const auto foreign = X11Link::open(server.display(), test::patient);
    xcb_grab_key(foreign->get(), 0, foreign->root(), XCB_MOD_MASK_ANY, 29, XCB_GRAB_MODE_ASYNC,
                 XCB_GRAB_MODE_ASYNC);
    ASSERT_TRUE(foreign->sync());
    setLayout("de");
    ASSERT_TRUE(loop.runUntil([&] { return !refusals.empty(); }));
    EXPECT_EQ(refusals, std::vector<std::string>{"already in use"});
    refusals.clear();
    setLayout("us");
    press(placeZ);
    EXPECT_EQ(pressesSoFar(), Ids{1});
}

TEST_F(X11HotkeysTest, WithoutAServerNothingIsRegistered) {
    test::LogWatch log;
    log.expect("no global hotkeys without an x server");
    X11Hotkeys nowhere(loop, test::nobodysDisplay);
    EXPECT_FALSE(nowhere.registerHotKey(1, chordF, "Search"));
    EXPECT_EQ(log.records("no global hotkeys without an x server").at(0)["result"]["reason"],
              "the X server can't be reached");
}

TEST_F(X11HotkeysTest, AServerThatComesBackHasItsChordsTakenAnew) {
    test::LogWatch log;
    log.expect("x server connection lost, global hotkeys are taken anew");
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    server.replace();
    EXPECT_TRUE(pressUntilFired("f", 1));
    EXPECT_TRUE(loop.runUntil([&] {
        pressLast();
        return loop.runUntil([&] { return pressed.back() == last; }, 50ms);
    })) << "all of them";
}

TEST_F(X11HotkeysTest, AServerThatStaysAwayIsLoggedOnceAndTold) {
    test::LogWatch log;
    log.expect("global hotkey can't be had");
    log.expect("no global hotkeys without an x server");
    const auto* const lost = "x server connection lost, global hotkeys are taken anew";
    log.expect(lost);
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    server.kill();
    ASSERT_TRUE(loop.runUntil([&] { return !refusals.empty(); }));
    EXPECT_EQ(refusals, std::vector<std::string>{"the X server can't be reached"});
    EXPECT_FALSE(hotkeys.registerHotKey(2, chordZ, "Undo"));
    EXPECT_EQ(log.count(lost), 1U);
    // It is looked for all the same, and what it means for the chords is told once.
    loop.runUntil([] { return false; }, 2500ms);
    EXPECT_EQ(refusals.size(), 1U);
    hotkeys.unregisterHotKey(1);
}

/// Keeps what is posted to itself when told to.
class HoldingLoop : public test::PollLoop {
  public:
    void post(std::function<void()> work) override {
        if (holds)
            held.push_back(std::move(work));
        else
            PollLoop::post(std::move(work));
    }
    bool holds = false;
    std::vector<std::function<void()>> held;
};

TEST_F(X11HotkeysTest, APressUnderWayFindsNobodyAfterTheEnd) {
    HoldingLoop holding;
    auto brief = std::make_unique<X11Hotkeys>(holding, server.display(), test::patient);
    listen(*brief);
    ASSERT_TRUE(brief->registerHotKey(5, chordF, "Search"));
    // The first press may bring news of the keyboard along, the second one comes alone.
    press("f");
    ASSERT_TRUE(holding.runUntil([&] { return !pressed.empty(); }));
    pressed.clear();
    holding.holds = true;
    press("f");
    ASSERT_TRUE(holding.runUntil([&] { return !holding.held.empty(); }));
    brief.reset();
    for (const auto& work : holding.held) work();
    EXPECT_EQ(pressed, Ids{});
}

/// Waits for the server no longer than it does for a user.
class BusyServerTest : public X11HotkeysTest {
  protected:
    BusyServerTest() { listen(hasty); }

    X11Hotkeys hasty{loop, server.display()};
};

TEST_F(BusyServerTest, AServerThatStandsStillHoldsNothingUp) {
    ASSERT_TRUE(hasty.registerHotKey(2, chordZ, "Undo"));
    const auto began = MainLoop::Clock::now();
    server.signal(SIGSTOP);
    EXPECT_TRUE(hasty.registerHotKey(1, chordF, "Search"));
    EXPECT_LT(MainLoop::Clock::now() - began, 5s);
    server.signal(SIGCONT);
    EXPECT_TRUE(pressUntilFired("f", 1));
}

TEST_F(BusyServerTest, AServerThatStandsStillFromTheStartHoldsNothingUpAndGivesTheChordLater) {
    server.signal(SIGSTOP);
    const auto began = MainLoop::Clock::now();
    EXPECT_TRUE(hasty.registerHotKey(1, chordF, "Search"));
    EXPECT_TRUE(hasty.registerHotKey(2, chordZ, "Undo"));
    EXPECT_LT(MainLoop::Clock::now() - began, 5s);
    // It is asked in vain once more.
    loop.runUntil([] { return false; }, 1500ms);
    EXPECT_TRUE(refusals.empty());
    server.signal(SIGCONT);
    EXPECT_TRUE(pressUntilFired("f", 1));
}

/// Nobody else is served while this exists.
class ServerGrab {
  public:
    explicit ServerGrab(const test::PrivateXServer& server)
        : link_(X11Link::open(server.display(), test::patient)) {
        xcb_grab_server(link_->get());
        EXPECT_TRUE(link_->sync());
    }

  private:
    const std::unique_ptr<X11Link> link_;
};

TEST_F(BusyServerTest, AChordThatABusyServerDidNotAnswerIsTakenOnceItDoes) {
    auto busy = std::make_unique<ServerGrab>(server);
    EXPECT_TRUE(hasty.registerHotKey(1, chordF, "Search"));
    EXPECT_TRUE(hasty.registerHotKey(2, chordZ, "Undo"));
    // It is asked in vain once more before it is free.
    loop.runUntil([] { return false; }, 1500ms);
    busy.reset();
    EXPECT_TRUE(pressUntilFired("f", 1));
    EXPECT_TRUE(pressUntilFired("z", 2));
    EXPECT_TRUE(refusals.empty());
}

TEST_F(BusyServerTest, AChordThatABusyServerDidNotAnswerMayTurnOutToBeTaken) {
    const auto other = X11Link::open(server.display(), test::patient);
    xcb_grab_key(other->get(), 0, other->root(), XCB_MOD_MASK_4 | XCB_MOD_MASK_SHIFT, 41,
                 XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
    ASSERT_TRUE(other->sync());
    test::LogWatch log;
    log.expect("global hotkey can't be had");
    auto busy = std::make_unique<ServerGrab>(server);
    EXPECT_TRUE(hasty.registerHotKey(1, chordF, "Search"));
    busy.reset();
    ASSERT_TRUE(loop.runUntil([&] { return !refusals.empty(); }));
    EXPECT_EQ(refusals, std::vector<std::string>{"already in use"});
    const auto told = log.records("global hotkey can't be had");
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0]["result"]["reason"], "already in use");
}

TEST_F(BusyServerTest, ALayoutThatChangesWhileTheServerIsBusyLosesNoChord) {
    ASSERT_TRUE(hasty.registerHotKey(1, chordZ, "Undo"));
    static_cast<void>(server.run({"setxkbmap", "-layout", "de"}));
    {
        const ServerGrab busy(server);
        loop.runUntil([] { return false; }, 1500ms);
    }
    EXPECT_TRUE(pressUntilFired(placeY, 1));
    EXPECT_TRUE(refusals.empty());
}

TEST_F(X11HotkeysTest, AChordThatIsAddedBeforeTheServerIsBackKeepsTheOthers) {
    test::LogWatch log;
    log.expect("x server connection lost, global hotkeys are taken anew");
    registerLast();
    ASSERT_TRUE(hotkeys.registerHotKey(1, chordF, "Search"));
    server.replace();
    const auto* const lost = "x server connection lost, global hotkeys are taken anew";
    ASSERT_TRUE(loop.runUntil([&] { return log.count(lost) == 1; }));
    ASSERT_TRUE(hotkeys.registerHotKey(2, chordZ, "Undo"));
    press("f");
    press("z");
    EXPECT_EQ(pressesSoFar(), (Ids{1, 2}));
}

}  // namespace
}  // namespace sonra
