#include "dictation/VirtualKeys.h"

#include <algorithm>
#include <array>

#include "dictation/CarbonModifiers.h"

namespace sonra {
namespace {

/// The ANSI keyboard virtual key codes, in their order; keysyms as in the X11 protocol's appendix,
/// positions as in Linux's input event codes.
constexpr auto keys = std::to_array<VirtualKey>({
    {0, 0x61, "a", 30},
    {1, 0x73, "s", 31},
    {2, 0x64, "d", 32},
    {3, 0x66, "f", 33},
    {4, 0x68, "h", 35},
    {5, 0x67, "g", 34},
    {6, 0x7a, "z", 44},
    {7, 0x78, "x", 45},
    {8, 0x63, "c", 46},
    {9, 0x76, "v", 47},
    {11, 0x62, "b", 48},
    {12, 0x71, "q", 16},
    {13, 0x77, "w", 17},
    {14, 0x65, "e", 18},
    {15, 0x72, "r", 19},
    {16, 0x79, "y", 21},
    {17, 0x74, "t", 20},
    {18, 0x31, "1", 2},
    {19, 0x32, "2", 3},
    {20, 0x33, "3", 4},
    {21, 0x34, "4", 5},
    {22, 0x36, "6", 7},
    {23, 0x35, "5", 6},
    {24, 0x3d, "equal", 13},
    {25, 0x39, "9", 10},
    {26, 0x37, "7", 8},
    {27, 0x2d, "minus", 12},
    {28, 0x38, "8", 9},
    {29, 0x30, "0", 11},
    {30, 0x5d, "bracketright", 27},
    {31, 0x6f, "o", 24},
    {32, 0x75, "u", 22},
    {33, 0x5b, "bracketleft", 26},
    {34, 0x69, "i", 23},
    {35, 0x70, "p", 25},
    {36, 0xff0d, "Return", 28},
    {37, 0x6c, "l", 38},
    {38, 0x6a, "j", 36},
    {39, 0x27, "apostrophe", 40},
    {40, 0x6b, "k", 37},
    {41, 0x3b, "semicolon", 39},
    {42, 0x5c, "backslash", 43},
    {43, 0x2c, "comma", 51},
    {44, 0x2f, "slash", 53},
    {45, 0x6e, "n", 49},
    {46, 0x6d, "m", 50},
    {47, 0x2e, "period", 52},
    {48, 0xff09, "Tab", 15},
    {49, 0x20, "space", 57},
    {50, 0x60, "grave", 41},
    {51, 0xff08, "BackSpace", 14},
    {53, 0xff1b, "Escape", 1},
    {64, 0xffce, "F17", 187},
    {65, 0xffae, "KP_Decimal", 83},
    {67, 0xffaa, "KP_Multiply", 55},
    {69, 0xffab, "KP_Add", 78},
    {71, 0xff7f, "Num_Lock", 69},
    {75, 0xffaf, "KP_Divide", 98},
    {76, 0xff8d, "KP_Enter", 96},
    {78, 0xffad, "KP_Subtract", 74},
    {79, 0xffcf, "F18", 188},
    {80, 0xffd0, "F19", 189},
    {81, 0xffbd, "KP_Equal", 117},
    {82, 0xffb0, "KP_0", 82},
    {83, 0xffb1, "KP_1", 79},
    {84, 0xffb2, "KP_2", 80},
    {85, 0xffb3, "KP_3", 81},
    {86, 0xffb4, "KP_4", 75},
    {87, 0xffb5, "KP_5", 76},
    {88, 0xffb6, "KP_6", 77},
    {89, 0xffb7, "KP_7", 71},
    {90, 0xffd1, "F20", 190},
    {91, 0xffb8, "KP_8", 72},
    {92, 0xffb9, "KP_9", 73},
    {96, 0xffc2, "F5", 63},
    {97, 0xffc3, "F6", 64},
    {98, 0xffc4, "F7", 65},
    {99, 0xffc0, "F3", 61},
    {100, 0xffc5, "F8", 66},
    {101, 0xffc6, "F9", 67},
    {103, 0xffc8, "F11", 87},
    {105, 0xffca, "F13", 183},
    {106, 0xffcd, "F16", 186},
    {107, 0xffcb, "F14", 184},
    {109, 0xffc7, "F10", 68},
    {111, 0xffc9, "F12", 88},
    {113, 0xffcc, "F15", 185},
    {114, 0xff63, "Insert", 110},  // the key there is Help
    {115, 0xff50, "Home", 102},
    {116, 0xff55, "Prior", 104},
    {117, 0xffff, "Delete", 111},
    {118, 0xffc1, "F4", 62},
    {119, 0xff57, "End", 107},
    {120, 0xffbf, "F2", 60},
    {121, 0xff56, "Next", 109},
    {122, 0xffbe, "F1", 59},
    {123, 0xff51, "Left", 105},
    {124, 0xff53, "Right", 106},
    {125, 0xff54, "Down", 108},
    {126, 0xff52, "Up", 103},
});
static_assert(std::ranges::is_sorted(keys, {}, &VirtualKey::code));

bool has(std::uint32_t modifiers, CarbonModifier bit) {
    return (modifiers & bit) != 0;
}

}  // namespace

const VirtualKey* virtualKey(std::uint32_t code) {
    const auto* const found = std::ranges::lower_bound(keys, code, {}, &VirtualKey::code);
    return found != keys.end() && found->code == code ? found : nullptr;
}

std::optional<KeyChord> globalChord(std::uint32_t keyCode, std::uint32_t carbonModifiers) {
    const auto* const key = virtualKey(keyCode);
    if (key == nullptr) return std::nullopt;
    return KeyChord{key->keysym,
                    std::string(key->name),
                    key->position,
                    has(carbonModifiers, carbonCommandKey),
                    has(carbonModifiers, carbonOptionKey),
                    has(carbonModifiers, carbonControlKey),
                    has(carbonModifiers, carbonShiftKey)};
}

}  // namespace sonra
