#include "dictation/GlobalHotkey.h"

#include <gtest/gtest.h>

#include <set>

#include "dictation/CarbonModifiers.h"
#include "dictation/VirtualKeys.h"
#include "support/FakeGlobalHotkeys.h"

namespace sonra {
namespace {

constexpr std::uint32_t keyF = 3;
constexpr std::uint32_t commandShift = 768;

class GlobalHotkeyTest : public testing::Test {
  protected:
    std::unique_ptr<GlobalHotkey> make(std::uint32_t keyCode = keyF) {
        return GlobalHotkey::make(
            desktop, keyCode, commandShift, "Search", [this] { ++presses; },
            [this](const std::string& reason) { refusal = reason; });
    }

    test::FakeGlobalHotkeys desktop;
    int presses = 0;
    std::string refusal;
};

TEST_F(GlobalHotkeyTest, RegistersTheChordUnderItsTitle) {
    const auto hotkey = make();
    ASSERT_TRUE(hotkey);
    const auto& [chord, title] = desktop.registered.at(hotkey->id());
    EXPECT_EQ(chord, (KeyChord{0x66, "f", 33, true, false, false, true}));
    EXPECT_EQ(title, "Search");
}

TEST_F(GlobalHotkeyTest, APressCallsBack) {
    const auto hotkey = make();
    desktop.press(hotkey->id());
    desktop.press(hotkey->id());
    EXPECT_EQ(presses, 2);
}

TEST_F(GlobalHotkeyTest, EachIsCalledForItsOwnPresses) {
    int others = 0;
    const auto hotkey = make();
    const auto other = GlobalHotkey::make(desktop, 49, carbonOptionKey, "Other", [&] { ++others; });
    ASSERT_TRUE(other);
    EXPECT_GT(other->id(), hotkey->id());
    desktop.press(other->id());
    EXPECT_EQ(presses, 0);
    EXPECT_EQ(others, 1);
}

TEST_F(GlobalHotkeyTest, ARefusedChordGivesNoObject) {
    desktop.refusesEverything = true;
    EXPECT_FALSE(make());
    desktop.refusesEverything = false;
    const auto first = make();
    EXPECT_TRUE(first);
    EXPECT_FALSE(make()) << "the same chord again";
}

TEST_F(GlobalHotkeyTest, ACodeThatNoKeyHasGivesNoObject) {
    EXPECT_FALSE(make(200));
    EXPECT_TRUE(desktop.registered.empty());
}

TEST_F(GlobalHotkeyTest, NumbersAreNeverUsedTwice) {
    const auto before = make()->id();
    EXPECT_GT(make()->id(), before);
}

TEST_F(GlobalHotkeyTest, UnregisteringFreesTheChordOnce) {
    const auto hotkey = make();
    hotkey->unregister();
    EXPECT_TRUE(desktop.registered.empty());
    const auto next = make();
    hotkey->unregister();
    EXPECT_EQ(desktop.registered.size(), 1U);
}

TEST_F(GlobalHotkeyTest, APressUnderWayFindsNobodyAfterTheEnd) {
    auto hotkey = make();
    const auto id = hotkey->id();
    hotkey.reset();
    desktop.press(id);
    desktop.refuse(id, "gone");
    EXPECT_EQ(presses, 0);
    EXPECT_EQ(refusal, "");
}

TEST_F(GlobalHotkeyTest, ItsOwnCallbackMayEndIt) {
    std::unique_ptr<GlobalHotkey> hotkey;
    const auto kept = std::make_shared<int>(7);
    hotkey = GlobalHotkey::make(desktop, keyF, commandShift, "Search", [&hotkey, kept] {
        hotkey.reset();
        EXPECT_EQ(*kept, 7);
    });
    desktop.press(hotkey->id());
    EXPECT_FALSE(hotkey);
    EXPECT_EQ(kept.use_count(), 1);
}

TEST_F(GlobalHotkeyTest, ALaterRefusalIsToldWithItsReason) {
    const auto hotkey = make();
    desktop.refuse(hotkey->id(), "declined");
    EXPECT_EQ(refusal, "declined");
}

TEST_F(GlobalHotkeyTest, ARefusalWithoutAListenerDoesNothing) {
    const auto hotkey = GlobalHotkey::make(desktop, keyF, commandShift, "Search", [] {});
    desktop.refuse(hotkey->id(), "declined");
}

TEST(VirtualKeys, CarbonBitsAreModifiersOfTheirOwn) {
    struct Row {
        std::uint32_t mask;
        bool command, option, control, shift;
    };
    for (const auto& row :
         {Row{0, false, false, false, false}, Row{256, true, false, false, false},
          Row{512, false, false, false, true}, Row{2048, false, true, false, false},
          Row{4096, false, false, true, false}, Row{768, true, false, false, true},
          Row{0xffffffff, true, true, true, true}, Row{1024 | 128, false, false, false, false}}) {
        const auto chord = globalChord(49, row.mask).value();
        EXPECT_EQ(chord,
                  (KeyChord{0x20, "space", 57, row.command, row.option, row.control, row.shift}))
            << row.mask;
    }
}

TEST(VirtualKeys, KeysAreFoundByTheirCodes) {
    EXPECT_EQ(virtualKey(0)->name, "a");
    EXPECT_EQ(virtualKey(23)->name, "5");
    EXPECT_EQ(virtualKey(22)->name, "6");
    EXPECT_EQ(virtualKey(105)->name, "F13");
    EXPECT_EQ(virtualKey(126)->name, "Up");
    for (const auto code : {10U, 52U, 66U, 127U, 4'000'000'000U}) EXPECT_FALSE(virtualKey(code));
}

TEST(VirtualKeys, NoKeyIsListedTwice) {
    std::set<std::uint32_t> keysyms;
    std::set<int> positions;
    std::size_t count = 0;
    for (std::uint32_t code = 0; code < 128; ++code) {
        const auto* key = virtualKey(code);
        if (key == nullptr) continue;
        ++count;
        keysyms.insert(key->keysym);
        positions.insert(key->position);
    }
    EXPECT_EQ(count, 100U);
    EXPECT_EQ(keysyms.size(), count);
    EXPECT_EQ(positions.size(), count);
}

}  // namespace
}  // namespace sonra
