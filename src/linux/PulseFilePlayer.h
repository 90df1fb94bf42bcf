#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "linux/PulseConnection.h"
#include "linux/PulsePlaybackStream.h"
#include "linux/SoundFileReader.h"
#include "platform/FilePlayer.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Plays one sound file through the sound server.
///
/// A position in the file, and, while sounding or paused for a short while, a stream that runs on
/// from there:
///
///     standing, no stream --play--> running --pause--> standing, stream held --play--> running
///
/// A seek, a pause that lasts (the sound server shall sleep) and a server that dies during a pause
/// drop the stream and keep the position; `play` opens another one there. While running, the end of
/// the stream is the end of the player. A stream that can't be opened ends it too, and no seek
/// takes that back. Main thread only; what libpulse's thread reports is posted, and is stale when
/// the stream has changed.
class PulseFilePlayer final : public FilePlayer {
  public:
    PulseFilePlayer(MainLoop& loop, std::shared_ptr<PulseConnection> connection,
                    std::shared_ptr<SoundFileReader> reader,
                    FilePlayerFactory::FinishedCallback onFinished);
    ~PulseFilePlayer() override;

    /// Reaches the server and loads the first samples, so that `play` sounds at once; the reason if
    /// it can't.
    [[nodiscard]] std::optional<std::string> prepare();

    void setVolume(float volume) override;
    bool play() override;
    void pause() override;
    void stop() override;
    [[nodiscard]] double currentTime() const override;
    void setCurrentTime(double seconds) override;
    [[nodiscard]] double duration() const override;
    [[nodiscard]] bool isPlaying() const override { return running_; }

    /// A call to the server takes no longer than this.
    static constexpr auto serverLimit = std::chrono::seconds(1);
    /// A pause longer than this gives the stream back.
    static constexpr auto streamHeldFor = std::chrono::seconds(10);

  private:
    using End = PulsePlaybackStream::End;

    [[nodiscard]] bool nothingLeft() const;
    bool start();
    void dropStream();
    [[nodiscard]] PulsePlaybackStream::EndCallback endReport();
    void giveUp(const std::string& reason);
    void ended(int streamNumber, End end, const std::string& reason);
    void finish(bool successfully);

    MainLoop& loop_;
    const std::shared_ptr<PulseConnection> connection_;
    const std::shared_ptr<SoundFileReader> reader_;
    FilePlayerFactory::FinishedCallback onFinished_;
    /// What reports under way hold weakly.
    std::shared_ptr<PulseFilePlayer*> self_;
    std::unique_ptr<PulsePlaybackStream> stream_;
    int streamNumber_ = 0;
    double position_ = 0;  ///< where the stream began, or would begin
    float volume_ = 1.0F;
    bool running_ = false;
    bool over_ = false;
    LoopHandle letGo_;
};

}  // namespace sonra
