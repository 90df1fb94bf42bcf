#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "platform/GlobalHotkeys.h"

namespace sonra::test {

/// Registers chords as a desktop does that other programs share.
class FakeGlobalHotkeys : public GlobalHotkeys {
  public:
    struct Registered {
        KeyChord chord;
        std::string title;
    };

    std::map<std::uint32_t, Registered> registered;
    bool refusesEverything = false;

    void setHandlers(Handlers handlers) override { handlers_ = std::move(handlers); }
    bool registerHotKey(std::uint32_t id, const KeyChord& chord,
                        const std::string& title) override {
        const auto same = [&chord](const auto& entry) { return entry.second.chord == chord; };
        if (refusesEverything || std::ranges::any_of(registered, same)) return false;
        return registered.try_emplace(id, Registered{chord, title}).second;
    }
    void unregisterHotKey(std::uint32_t id) override { registered.erase(id); }

    /// The loop delivers a press; one may still be under way when its chord has gone.
    void press(std::uint32_t id) const { handlers_.pressed(id); }
    void refuse(std::uint32_t id, const std::string& reason) const {
        handlers_.refused(id, reason);
    }

  private:
    Handlers handlers_;
};

}  // namespace sonra::test
