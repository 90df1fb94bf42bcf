#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "platform/GlobalHotkeys.h"

namespace sonra {

/// Key chords whose refusal the user is told in a notification, with the reason and so with the way
/// that is left: each once, however often the desktop changes its mind.
///
/// Main thread only; owned by the desktop, owns what really gets the chords. Without a session bus
/// nothing is told.
class TellingHotkeys : public GlobalHotkeys {
  public:
    explicit TellingHotkeys(std::unique_ptr<GlobalHotkeys> hotkeys);

    void setHandlers(Handlers handlers) override;
    [[nodiscard]] bool registerHotKey(std::uint32_t id, const KeyChord& chord,
                                      const std::string& title) override;
    void unregisterHotKey(std::uint32_t id) override;

  private:
    struct Wish {
        std::string keys;
        std::string title;
    };
    void refused(std::uint32_t id, const std::string& reason);
    void tell(const Wish& wish, const std::string& reason);

    const std::unique_ptr<GlobalHotkeys> hotkeys_;
    Handlers handlers_;
    std::map<std::uint32_t, Wish> wishes_;
    std::set<std::string> told_;  ///< titles
};

}  // namespace sonra
