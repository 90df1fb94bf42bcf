#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "frame/Log.h"
#include "linux/X11Patience.h"
#include "platform/GlobalHotkeys.h"
#include "platform/MainLoop.h"

namespace sonra {

class X11KeyMap;
class X11Link;

/// Global key chords by grabbing keys of the X server.
///
/// Main thread only; the loop must outlive it. The connection is its own and made for the first
/// chord; without chords there is none, and nothing wakes up while no key of a chord is pressed. A
/// chord is taken whatever Caps Lock, Num Lock and Scroll Lock are, and anew when the keyboard's
/// layout changes. A server that doesn't answer in time is asked again every second until it does,
/// and so is one whose connection broke; that it broke is logged once.
class X11Hotkeys : public GlobalHotkeys {
  public:
    /// An empty display is the environment's.
    explicit X11Hotkeys(MainLoop& loop, std::string display = {}, X11Patience patience = {});
    ~X11Hotkeys() override;
    X11Hotkeys(const X11Hotkeys&) = delete;
    X11Hotkeys& operator=(const X11Hotkeys&) = delete;

    void setHandlers(Handlers handlers) override { handlers_ = std::move(handlers); }
    [[nodiscard]] bool registerHotKey(std::uint32_t id, const KeyChord& chord,
                                      const std::string& title) override;
    void unregisterHotKey(std::uint32_t id) override;

  private:
    enum class Answer { none, held, taken };
    struct Grab {
        KeyChord chord;
        std::uint16_t modifiers = 0;
        std::vector<std::uint8_t> keys;  ///< those held; empty unless the chord is held
        Answer answer = Answer::none;
    };
    struct Release {
        std::uint8_t key = 0;
        std::uint32_t time = 0;
    };

    /// False if there is no server. One that doesn't answer leaves no connection behind either.
    bool connect();
    void hold(std::uint32_t id, Grab& grab);
    /// Takes the chords that have no answer yet, as long as the server answers; true if all have
    /// one then, else it goes on later.
    bool holdUnanswered();
    void tryLater();
    void tryAgain();
    void letGo(Grab& grab);
    [[nodiscard]] bool isTaken(const Grab& wanted) const;
    void read();
    void readLater();
    void handlePress(std::uint8_t key, std::uint16_t state, std::uint32_t time);
    void followMapping();
    void takeAnew();
    void lose();
    void refuseAll();
    void report(std::uint32_t id, std::optional<std::string> refusal);

    MainLoop& loop_;
    const std::string display_;
    const X11Patience patience_;
    const Log log_;
    Handlers handlers_;
    std::map<std::uint32_t, Grab> grabs_;
    std::unique_ptr<X11Link> link_;
    std::unique_ptr<X11KeyMap> keyMap_;
    std::optional<Release> released_;  ///< the last key of a chord that was let go
    bool lossLogged_ = false;
    bool absenceTold_ = false;
    bool mappingPending_ = false;
    bool isMappingOld_ = false;
    bool retryPending_ = false;
    LoopHandle retry_;
    LoopHandle readable_;  // ends before the connection
    /// Expires with this object.
    const std::shared_ptr<X11Hotkeys*> self_ = std::make_shared<X11Hotkeys*>(this);
};

}  // namespace sonra
