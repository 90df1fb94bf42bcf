#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace sonra {

/// A key together with the modifiers that must be held, and no others.
struct KeyChord {
    std::uint32_t keysym = 0;   ///< what is printed on the key, unshifted, as X11 numbers it
    std::string keyName;        ///< the same by its name there
    std::uint8_t position = 0;  ///< the key's evdev code, for layouts that print that nowhere
    bool command = false;       ///< the Super key
    bool option = false;        ///< the Alt key
    bool control = false;
    bool shift = false;

    bool operator==(const KeyChord&) const = default;
};

/// Key chords that reach this program whichever program has the focus.
///
/// Main thread only. Presses are reported, not releases; a key that is held is pressed once. The
/// handlers are called by the loop, never inside a call of this class.
class GlobalHotkeys {
  public:
    struct Handlers {
        std::function<void(std::uint32_t id)> pressed;
        /// A chord that was registered can't be had after all: a desktop may decide later, or take
        /// it away. `reason` is for a person to read. The registration stays, and comes to life if
        /// the desktop changes its mind.
        std::function<void(std::uint32_t id, const std::string& reason)> refused;
    };

    virtual ~GlobalHotkeys() = default;

    virtual void setHandlers(Handlers handlers) = 0;
    /// False if the chord is known to be out of reach: taken by another program or by another `id`,
    /// not on this keyboard, or nothing here can watch keys; the log has the reason. `id` is the
    /// caller's and not in use; `title` tells a person what the chord does.
    [[nodiscard]] virtual bool registerHotKey(std::uint32_t id, const KeyChord& chord,
                                              const std::string& title) = 0;
    /// An unknown id does nothing.
    virtual void unregisterHotKey(std::uint32_t id) = 0;
};

}  // namespace sonra
