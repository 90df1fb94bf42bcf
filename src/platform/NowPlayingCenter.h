#pragma once

#include <optional>
#include <string>

namespace sonra {

/// What the desktop shows of the sound that is playing. Times in seconds.
struct NowPlayingInfo {
    std::string title;
    std::string artist;
    std::optional<std::string> albumTitle;
    double duration = 0;
    double elapsed = 0;
    double rate = 0;  ///< 1.0 while sound runs, 0.0 while it stands

    bool operator==(const NowPlayingInfo&) const = default;
};

enum class PlaybackState { playing = 1, paused = 2, stopped = 3 };

/// The desktop's now-playing surface. Main thread only; never fails and never blocks.
class NowPlayingCenter {
  public:
    virtual ~NowPlayingCenter() = default;

    /// Absent means that nothing is shown.
    virtual void setInfo(std::optional<NowPlayingInfo> info) = 0;
    [[nodiscard]] virtual std::optional<NowPlayingInfo> info() const = 0;
    virtual void setPlaybackState(PlaybackState state) = 0;
};

}  // namespace sonra
