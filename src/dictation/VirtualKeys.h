#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/GlobalHotkeys.h"

namespace sonra {

/// A key of the ANSI keyboard as this desktop names it.
struct VirtualKey {
    std::uint32_t code;     ///< its virtual key code
    std::uint32_t keysym;   ///< X11's number of what is printed on it
    std::string_view name;  ///< X11's name of that
    std::uint8_t position;  ///< its evdev code
};

/// The key of this virtual key code; null for codes that no key has.
const VirtualKey* virtualKey(std::uint32_t code);

/// What a stored chord means for keys that are watched globally: Command is the Super key, Option
/// the Alt key. Bits that stand for no modifier are ignored. Absent for codes that no key has.
std::optional<KeyChord> globalChord(std::uint32_t keyCode, std::uint32_t carbonModifiers);

}  // namespace sonra
