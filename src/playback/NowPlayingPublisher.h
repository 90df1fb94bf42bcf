#pragma once

namespace sonra {

class MainLoop;
class NowPlayingCenter;
struct AudioChunk;

/// Tells the desktop what is playing. The position is written at most once a second unless a user's
/// action asks for more. Main thread only; does nothing on a desktop without a now-playing surface.
class NowPlayingPublisher {
  public:
    /// Both are borrowed; `center` may be null.
    NowPlayingPublisher(MainLoop& loop, NowPlayingCenter* center) : loop_(loop), center_(center) {}

    /// Whether a position may be written at `now` after one at `last`, in seconds of uptime.
    static bool shouldPushNowPlaying(double now, double last, bool force) {
        return force || now - last >= 1.0;
    }

    /// Replaces everything that is shown: `chunk` plays from its start.
    void begin(const AudioChunk& chunk, double duration);
    void setPlaying(bool playing);
    void refresh(double elapsed, bool playing, bool force);
    /// Nothing is shown any more.
    void clear();

  private:
    [[nodiscard]] double uptime() const;

    MainLoop& loop_;
    NowPlayingCenter* center_;
    double lastNowPlayingPush_ = 0;
};

}  // namespace sonra
