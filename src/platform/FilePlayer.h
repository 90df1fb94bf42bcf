#pragma once

#include <functional>
#include <memory>
#include <string>

namespace sonra {

/// Plays one audio file. Made by FilePlayerFactory, used on the main thread only, owned by whoever
/// opened it; destroying it stops the sound and silences its callback. Times are seconds in the
/// file.
class FilePlayer {
  public:
    virtual ~FilePlayer() = default;

    /// Linear gain, 0.0 to 1.0, audible at once.
    virtual void setVolume(float volume) = 0;
    /// Starts or resumes. Returns false if the sound could not be started.
    virtual bool play() = 0;
    /// Silences at once and keeps the position; `play` goes on from there.
    virtual void pause() = 0;
    /// Silences at once and for good. The end callback doesn't run any more.
    virtual void stop() = 0;
    /// What is being heard now, within 0 and duration().
    [[nodiscard]] virtual double currentTime() const = 0;
    /// Moves within the file, playing or paused; the caller keeps `seconds` within 0 and
    /// duration().
    virtual void setCurrentTime(double seconds) = 0;
    [[nodiscard]] virtual double duration() const = 0;
    [[nodiscard]] virtual bool isPlaying() const = 0;
};

/// Opens files for playing. Main thread only.
class FilePlayerFactory {
  public:
    struct Opened {
        std::unique_ptr<FilePlayer> player;  ///< null on failure
        std::string error;                   ///< a text for a person, when player is null
    };
    /// Runs on the main thread, posted, at most once, when the file has been heard to its end
    /// (true) or the sound broke off (false: decode error, server gone).
    using FinishedCallback = std::function<void(bool successfully)>;

    virtual ~FilePlayerFactory() = default;

    /// Reads the file's header and reaches the sound server. Takes at most about a second; a
    /// failure of either gives no player and the reason.
    [[nodiscard]] virtual Opened open(const std::string& path, FinishedCallback onFinished) = 0;
};

}  // namespace sonra
