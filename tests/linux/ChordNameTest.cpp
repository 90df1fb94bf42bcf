#include "linux/ChordName.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

std::string nameOf(const std::string& key) {
    return chordName({.keyName = key});
}

TEST(ChordName, HasItsModifiersInFront) {
    const KeyChord all{0x66, "f", 33, true, true, true, true};
    EXPECT_EQ(chordName(all), "Super+Ctrl+Alt+Shift+F");
    EXPECT_EQ(chordName({.keyName = "space", .command = true}), "Super+Space");
}

TEST(ChordName, KeysAreNamedAsTheyAreOnAKeyboard) {
    const std::pair<const char*, const char*> names[] = {
        {"f", "F"},           {"7", "7"},           {"F13", "F13"},
        {"bracketleft", "["}, {"Return", "Enter"},  {"KP_Enter", "Keypad Enter"},
        {"KP_7", "Keypad 7"}, {"Prior", "Page Up"}, {"Tab", "Tab"},
        {"backslash", "\\"},  {"Home", "Home"}};
    for (const auto& [key, name] : names) EXPECT_EQ(nameOf(key), name) << key;
}

TEST(ChordName, AKeyThatIsNotKnownKeepsItsName) {
    EXPECT_EQ(nameOf("XF86AudioPlay"), "XF86AudioPlay");
    EXPECT_EQ(nameOf(""), "");
}

}  // namespace
}  // namespace sonra
