#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/GlobalHotkeys.h"

namespace sonra {

/// A key chord that calls back whichever program has the focus.
///
/// Main thread only, the callbacks too; the desktop's port must outlive every instance. Each has
/// the next number of a counter of the process, and its callbacks are in a table of the process by
/// that number, so that a press under way to an instance that has gone finds nobody. There is no
/// release. Ends by `unregister` or with its scope.
class GlobalHotkey {
  public:
    using OnPress = std::function<void()>;
    using OnRefused = std::function<void(const std::string& reason)>;

    /// Null if the chord can't be had: see `GlobalHotkeys::registerHotKey`, or `keyCode` is no
    /// key's virtual key code. `modifiers` are Carbon's. Where the desktop decides later,
    /// `onRefused` gets its reason. `title` is what the desktop may call the chord.
    static std::unique_ptr<GlobalHotkey> make(GlobalHotkeys& desktop, std::uint32_t keyCode,
                                              std::uint32_t modifiers, const std::string& title,
                                              OnPress onPress, OnRefused onRefused = {});
    ~GlobalHotkey() { unregister(); }
    GlobalHotkey(const GlobalHotkey&) = delete;
    GlobalHotkey& operator=(const GlobalHotkey&) = delete;

    /// Frees the chord; further calls do nothing.
    void unregister();
    [[nodiscard]] std::uint32_t id() const { return id_; }

  private:
    GlobalHotkey(GlobalHotkeys& desktop, std::uint32_t id) : desktop_(&desktop), id_(id) {}

    GlobalHotkeys* desktop_;  ///< null once unregistered
    const std::uint32_t id_;
};

}  // namespace sonra
