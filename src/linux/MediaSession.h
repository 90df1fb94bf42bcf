#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "linux/MediaView.h"
#include "platform/MainLoop.h"
#include "platform/NowPlayingCenter.h"
#include "platform/RemoteCommandCenter.h"

namespace sonra {

/// One media player as desktops know it: what it shows, and what it does on command. A subclass
/// carries both to where the desktop looks.
///
/// Main thread only; borrows the loop. The player is offered from the first sound until `retire`.
/// Changes are published once a turn of the loop, however many there were. Commands never fail:
/// what can't be done now has no effect. Times in microseconds.
class MediaSession : public NowPlayingCenter, public RemoteCommandCenter {
  public:
    explicit MediaSession(MainLoop& loop) : loop_(loop) {}
    MediaSession(const MediaSession&) = delete;
    MediaSession& operator=(const MediaSession&) = delete;

    void setInfo(std::optional<NowPlayingInfo> info) override;
    [[nodiscard]] std::optional<NowPlayingInfo> info() const override { return info_; }
    void setPlaybackState(PlaybackState state) override;
    void setHandlers(Handlers handlers) override;
    void setCanNavigate(bool can) override;
    void setVolume(double gain) override;
    void retire() override;

    [[nodiscard]] MediaView view() const;
    /// Goes on by the clock while sound runs.
    [[nodiscard]] std::int64_t positionUs() const;

    void play() const { run(handlers_.play); }
    void pause() const { run(handlers_.pause); }
    void togglePlayPause() const { run(handlers_.togglePlayPause); }
    void stop() const { run(handlers_.stop); }
    void next() const;
    void previous() const;
    /// Beyond the start is the start; beyond the end is the next message.
    void seekBy(std::int64_t offsetUs);
    /// Ignored if `track` isn't the present one, so that a late command can't hit the wrong sound,
    /// and if the position isn't within it.
    void seekTo(std::uint64_t track, std::int64_t positionUs);
    void changeVolume(double gain) const;

  protected:
    /// The player is wanted; called again when a sound begins after silence, to make up for what
    /// failed.
    virtual void offer() = 0;
    virtual void withdraw() = 0;
    /// Something may have changed; `jumpedTo` is there if the position isn't the one that observers
    /// count.
    virtual void publish(const MediaView& view, std::optional<std::int64_t> jumpedTo) = 0;

  private:
    static void run(const Handler& handler);
    [[nodiscard]] bool isRunning() const;
    [[nodiscard]] double position() const;
    void anchor(double elapsed);
    void seek(double seconds);
    void changed();
    void flush();

    MainLoop& loop_;
    Handlers handlers_;
    std::optional<NowPlayingInfo> info_;
    PlaybackState state_ = PlaybackState::stopped;
    bool canNavigate_ = false;
    double volume_ = 1;
    std::uint64_t track_ = 0;
    bool offered_ = false;

    double elapsed_ = 0;  ///< seconds, at `since_`
    MainLoop::TimePoint since_{};
    std::optional<std::int64_t> jumpedTo_;  ///< not published yet
    bool flushUnderWay_ = false;
    /// Expires with the session.
    const std::shared_ptr<MediaSession*> self_ = std::make_shared<MediaSession*>(this);
};

}  // namespace sonra
