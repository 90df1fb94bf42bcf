#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "linux/X11Link.h"
#include "platform/GlobalHotkeys.h"

namespace sonra {

/// Which key has which sign and which modifier is which, as the X server has it now. A value.
class X11KeyMap {
  public:
    /// Absent if the server doesn't answer.
    static std::optional<X11KeyMap> read(X11Link& link);

    /// The keys that the chord means: those on which its sign is printed in the first layout, else
    /// in the second, else the one at its position. Empty if the keyboard has no such key.
    [[nodiscard]] std::vector<xcb_keycode_t> keysOf(const KeyChord& chord) const;
    [[nodiscard]] std::uint16_t modifiersOf(const KeyChord& chord) const;
    /// Modifiers that are switched on and off and mean nothing for a chord.
    [[nodiscard]] std::uint16_t locks() const;
    /// All states that the locks can be in.
    [[nodiscard]] std::vector<std::uint16_t> lockStates() const;

    bool operator==(const X11KeyMap&) const = default;

  private:
    [[nodiscard]] std::vector<xcb_keycode_t> keysWith(std::uint32_t keysym,
                                                      std::size_t column) const;
    [[nodiscard]] std::uint16_t modifierWith(std::uint32_t keysym, std::uint32_t other) const;
    [[nodiscard]] bool has(xcb_keycode_t key, std::uint32_t keysym) const;

    xcb_keycode_t first_ = 0;
    std::size_t width_ = 0;  ///< signs of each key
    std::vector<xcb_keysym_t> keysyms_;
    std::array<std::vector<xcb_keycode_t>, 8> modifiers_;
};

}  // namespace sonra
