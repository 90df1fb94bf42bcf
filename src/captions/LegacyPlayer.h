#pragma once

#include <functional>
#include <memory>

#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "platform/FilePlayer.h"
#include "platform/MainLoop.h"

namespace sonra {

class CaptionClient;
class CaptionWindow;
class NowPlayingCenter;

/// Plays one sound file, shows it as what is playing, with captions where they are wanted, and
/// ends the process.
///
/// Main thread only. Owns the player and its captions; borrows its ports, which outlive it. What
/// can't be played is said on standard error and ends the process with status 1; a sound heard to
/// its end, with 0. Captions that can't be had are gone without.
class LegacyPlayer {
  public:
    using WindowFactory = std::function<std::unique_ptr<CaptionWindow>()>;
    using Exit = std::function<void(int status)>;

    /// `center` may be null. `makeWindow` is called only for captions in a window of this process.
    LegacyPlayer(MainLoop& loop, FilePlayerFactory& players, NowPlayingCenter* center,
                 WindowFactory makeWindow, Exit exit);
    ~LegacyPlayer();
    LegacyPlayer(const LegacyPlayer&) = delete;
    LegacyPlayer& operator=(const LegacyPlayer&) = delete;

    /// Once. Ends the process through `exit`, at once or when the sound has been heard.
    void run(const PlayerArgs& args);

  private:
    [[nodiscard]] bool startPlaying(const PlayerArgs& args);
    void showNowPlaying(const PlayerArgs& args) const;
    void showCaptions(const PlayerArgs& args);
    void showWindow(const PlayerArgs& args);
    void showProgress();
    void send(const Json& command);
    void finished(bool successfully);
    void fail(const std::string& message) const;

    MainLoop& loop_;
    FilePlayerFactory& players_;
    NowPlayingCenter* const center_;
    const WindowFactory makeWindow_;
    const Exit exit_;
    std::unique_ptr<FilePlayer> player_;
    std::unique_ptr<CaptionWindow> window_;
    std::unique_ptr<CaptionClient> client_;
    LoopHandle progressTimer_;
};

}  // namespace sonra
