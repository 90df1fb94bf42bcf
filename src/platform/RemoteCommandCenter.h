#pragma once

#include <functional>

namespace sonra {

enum class RemoteCommandStatus { success = 0, commandFailed = 200 };

/// Transport commands from outside the program's own windows: media keys, headphones, the desktop's
/// media widget. Main thread only; handlers run there. The owner sets them once; an empty one
/// refuses.
class RemoteCommandCenter {
  public:
    using Handler = std::function<RemoteCommandStatus()>;
    struct Handlers {
        Handler play;
        Handler pause;
        Handler togglePlayPause;
        Handler nextTrack;
        Handler previousTrack;
        Handler stop;
        std::function<void(double seconds)> seek;  ///< position in the current chunk
        std::function<void(double gain)> volume;   ///< 0 to 1
    };

    virtual ~RemoteCommandCenter() = default;

    virtual void setHandlers(Handlers handlers) = 0;
    /// Whether next and previous would do anything now.
    virtual void setCanNavigate(bool can) = 0;
    /// The volume to show, 0 to 1.
    virtual void setVolume(double gain) = 0;
    /// The history has been cleared: nothing is offered until the next chunk begins.
    virtual void retire() = 0;
};

}  // namespace sonra
