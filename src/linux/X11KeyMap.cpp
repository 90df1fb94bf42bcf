#include "linux/X11KeyMap.h"

#include <algorithm>

namespace sonra {
namespace {

// As the X11 protocol numbers them.
constexpr std::uint32_t scrollLock = 0xff14;
constexpr std::uint32_t numLock = 0xff7f;
constexpr std::uint32_t altLeft = 0xffe9;
constexpr std::uint32_t altRight = 0xffea;
constexpr std::uint32_t superLeft = 0xffeb;
constexpr std::uint32_t superRight = 0xffec;

/// X11's key codes are the kernel's and eight.
constexpr int positionOffset = 8;
/// Two signs of a key belong to the first layout, the next two to the second.
constexpr std::size_t secondLayout = 2;

}  // namespace

std::optional<X11KeyMap> X11KeyMap::read(X11Link& link) {
    const auto* const setup = xcb_get_setup(link.get());
    const auto first = setup->min_keycode;
    const auto count = static_cast<std::uint8_t>(setup->max_keycode - first + 1);
    const auto askedModifiers = xcb_get_modifier_mapping(link.get());
    const auto keys = link.reply<xcb_get_keyboard_mapping_reply_t>(
        xcb_get_keyboard_mapping(link.get(), first, count));
    const auto modifiers = link.reply<xcb_get_modifier_mapping_reply_t>(askedModifiers);
    if (!keys || !modifiers) return std::nullopt;

    X11KeyMap map;
    map.first_ = first;
    map.width_ = keys->keysyms_per_keycode;
    const auto* const keysyms = xcb_get_keyboard_mapping_keysyms(keys.get());
    map.keysyms_.assign(keysyms, keysyms + xcb_get_keyboard_mapping_keysyms_length(keys.get()));
    const auto* next = xcb_get_modifier_mapping_keycodes(modifiers.get());
    for (auto& members : map.modifiers_) {
        members.assign(next, next + modifiers->keycodes_per_modifier);
        std::erase(members, xcb_keycode_t{0});
        next += modifiers->keycodes_per_modifier;
    }
    return map;
}

std::vector<xcb_keycode_t> X11KeyMap::keysWith(std::uint32_t keysym, std::size_t column) const {
    std::vector<xcb_keycode_t> keys;
    for (std::size_t at = column; column < width_ && at < keysyms_.size(); at += width_)
        if (keysyms_[at] == keysym)
            keys.push_back(static_cast<xcb_keycode_t>(first_ + at / width_));
    return keys;
}

std::vector<xcb_keycode_t> X11KeyMap::keysOf(const KeyChord& chord) const {
    for (const auto column : {std::size_t{0}, secondLayout})
        if (auto keys = keysWith(chord.keysym, column); !keys.empty()) return keys;
    const int key = chord.position + positionOffset;
    if (key > UINT8_MAX || width_ == 0) return {};
    return {static_cast<xcb_keycode_t>(key)};
}

bool X11KeyMap::has(xcb_keycode_t key, std::uint32_t keysym) const {
    if (key < first_) return false;
    const auto begin = static_cast<std::size_t>(key - first_) * width_;
    const auto end = std::min(begin + width_, keysyms_.size());
    for (auto at = begin; at < end; ++at)
        if (keysyms_[at] == keysym) return true;
    return false;
}

std::uint16_t X11KeyMap::modifierWith(std::uint32_t keysym, std::uint32_t other) const {
    // Shift, Lock and Control have fixed meanings, whatever keys have them.
    for (std::size_t i = XCB_MAP_INDEX_1; i < modifiers_.size(); ++i)
        for (const auto key : modifiers_[i])
            if (has(key, keysym) || has(key, other)) return static_cast<std::uint16_t>(1U << i);
    return 0;
}

std::uint16_t X11KeyMap::modifiersOf(const KeyChord& chord) const {
    const auto foundOr = [](std::uint16_t found, std::uint16_t usual) {
        return found != 0 ? found : usual;
    };
    unsigned mask = 0;
    if (chord.shift) mask |= XCB_MOD_MASK_SHIFT;
    if (chord.control) mask |= XCB_MOD_MASK_CONTROL;
    if (chord.option) mask |= foundOr(modifierWith(altLeft, altRight), XCB_MOD_MASK_1);
    if (chord.command) mask |= foundOr(modifierWith(superLeft, superRight), XCB_MOD_MASK_4);
    return static_cast<std::uint16_t>(mask);
}

std::uint16_t X11KeyMap::locks() const {
    return static_cast<std::uint16_t>(XCB_MOD_MASK_LOCK | modifierWith(numLock, numLock) |
                                      modifierWith(scrollLock, scrollLock));
}

std::vector<std::uint16_t> X11KeyMap::lockStates() const {
    const unsigned all = locks();
    std::vector<std::uint16_t> states;
    // Counts down through the subsets of the bits.
    for (unsigned state = all;; state = (state - 1) & all) {
        states.push_back(static_cast<std::uint16_t>(state));
        if (state == 0) return states;
    }
}

}  // namespace sonra
