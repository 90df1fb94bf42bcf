#include "linux/ChordName.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace sonra {
namespace {

using Name = std::pair<std::string_view, std::string_view>;

/// What X11 calls a key and what is printed on it.
constexpr auto printed = std::to_array<Name>({
    {"BackSpace", "Backspace"},
    {"Escape", "Esc"},
    {"Next", "Page Down"},
    {"Num_Lock", "Num Lock"},
    {"Prior", "Page Up"},
    {"Return", "Enter"},
    {"apostrophe", "'"},
    {"backslash", "\\"},
    {"bracketleft", "["},
    {"bracketright", "]"},
    {"comma", ","},
    {"equal", "="},
    {"grave", "`"},
    {"minus", "-"},
    {"period", "."},
    {"semicolon", ";"},
    {"slash", "/"},
    {"space", "Space"},
});

constexpr std::string_view keypad = "KP_";

std::string nameOf(std::string_view key) {
    if (key.starts_with(keypad)) return "Keypad " + std::string(key.substr(keypad.size()));
    if (key.size() == 1 && key[0] >= 'a' && key[0] <= 'z')
        return {static_cast<char>(key[0] - 'a' + 'A')};
    const auto* const found = std::ranges::find(printed, key, &Name::first);
    return std::string(found == printed.end() ? key : found->second);
}

}  // namespace

std::string chordName(const KeyChord& chord) {
    std::string name;
    if (chord.command) name += "Super+";
    if (chord.control) name += "Ctrl+";
    if (chord.option) name += "Alt+";
    if (chord.shift) name += "Shift+";
    return name + nameOf(chord.keyName);
}

}  // namespace sonra
