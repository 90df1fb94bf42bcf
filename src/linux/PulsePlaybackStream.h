#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "linux/PulseConnection.h"
#include "linux/SoundFileReader.h"

struct pa_operation;
struct pa_stream;

namespace sonra {

/// One run of a file on the sound server, from where the reader stands to the file's end.
///
/// It opens standing, with the first 400 ms already at the server, so that `run` sounds at once;
/// from then on the server asks for more, and libpulse's thread reads it from the file. Standing
/// and running change as often as one likes and lose no sample. The run ends by itself once;
/// destroying it silences at once. Main thread only, except `onEnd`. While the object lives, the
/// reader is its own.
class PulsePlaybackStream {
  public:
    enum class End { heard, undecodable, broken };
    /// Runs on libpulse's thread, under its lock, at most once; `reason` is for a person. Mustn't
    /// destroy the stream.
    using EndCallback = std::function<void(End end, const std::string& reason)>;

    PulsePlaybackStream(std::shared_ptr<PulseConnection> connection,
                        std::shared_ptr<SoundFileReader> reader, EndCallback onEnd);
    ~PulsePlaybackStream();
    PulsePlaybackStream(const PulsePlaybackStream&) = delete;
    PulsePlaybackStream& operator=(const PulsePlaybackStream&) = delete;

    /// Opens the stream, once; the reason if the server doesn't in time.
    [[nodiscard]] std::optional<std::string> open(const std::string& name, float volume,
                                                  Patience patience);
    void run();
    void stand();
    void setVolume(float volume);
    /// Seconds of this run that have been heard. Keeps its last value when the server is gone.
    [[nodiscard]] double heard();

  private:
    [[nodiscard]] bool connect(const std::string& name) SONRA_REQUIRES(connection_->loop());
    void disconnect() SONRA_REQUIRES(connection_->loop());
    void cork(bool corked) SONRA_REQUIRES(connection_->loop());
    void feed(std::size_t bytes) SONRA_REQUIRES(connection_->loop());
    void rewriteUnheard() SONRA_REQUIRES(connection_->loop());
    [[nodiscard]] std::int64_t writeBlock(std::int64_t frames, std::int64_t framesBack)
        SONRA_REQUIRES(connection_->loop());
    void beginDrain() SONRA_REQUIRES(connection_->loop());
    void drained(bool success) SONRA_REQUIRES(connection_->loop());
    void stateChanged() SONRA_REQUIRES(connection_->loop());
    void readTime() SONRA_REQUIRES(connection_->loop());
    void end(End how, const std::string& reason) SONRA_REQUIRES(connection_->loop());

    const std::shared_ptr<PulseConnection> connection_;
    const std::shared_ptr<SoundFileReader> reader_;
    EndCallback onEnd_ SONRA_GUARDED_BY(connection_->loop());
    pa_stream* stream_ SONRA_GUARDED_BY(connection_->loop()) = nullptr;
    pa_operation* drain_ SONRA_GUARDED_BY(connection_->loop()) = nullptr;
    bool opened_ SONRA_GUARDED_BY(connection_->loop()) = false;
    /// Before the first run, libpulse's clock counts though nothing sounds.
    bool begun_ SONRA_GUARDED_BY(connection_->loop()) = false;
    bool running_ SONRA_GUARDED_BY(connection_->loop()) = false;
    bool allWritten_ SONRA_GUARDED_BY(connection_->loop()) = false;
    std::int64_t firstFrame_ SONRA_GUARDED_BY(connection_->loop()) = 0;  ///< of the file
    std::int64_t written_ SONRA_GUARDED_BY(connection_->loop()) = 0;     ///< frames since then
    float gain_ SONRA_GUARDED_BY(connection_->loop()) = 1;
    /// Seconds; the last known value.
    double heard_ SONRA_GUARDED_BY(connection_->loop()) = 0;
};

}  // namespace sonra
