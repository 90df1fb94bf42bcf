#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "frame/Json.h"
#include "frame/Mutex.h"

namespace sonra {

/// Keeps one small document on disk that says what is playing and where in the history the listener
/// stands, for programs that read it without asking the service.
///
/// The audio queue writes the playback slice, the coordinator the rest. Updates come from the main
/// thread and may wait up to a second for another process that writes the same document; other
/// threads may update too. Failures are silent: the record stays in memory and the next update
/// tries again.
class NowPlayingSnapshotWriter {
  public:
    static constexpr int schemaVersion = 2;

    enum class State { idle, playing, paused };
    /// The slice of the audio queue. Idle zeroes the numbers, whatever they are.
    struct Playback {
        State state = State::idle;
        std::string messageId;
        double elapsed = 0;   ///< seconds
        double duration = 0;  ///< seconds
        int chunkIndex = 0;   ///< zero-based
        int totalChunks = 0;
    };

    struct History {
        int messageIndex = 0;
        int totalKnown = 0;
    };
    struct Idle {};
    struct Live {};
    using Cursor = std::variant<Idle, Live, History>;
    /// The slice of the coordinator.
    struct Position {
        std::string sessionId;
        Cursor cursor;
        int newLiveCount = 0;
        int liveMessageIndex = 0;
        int liveTotalMessages = 0;
    };

    static std::string defaultPath();

    explicit NowPlayingSnapshotWriter(std::string path = defaultPath());

    /// Writes unless nothing that shows in whole seconds has changed since the last playback
    /// update.
    void updatePlayback(const Playback& playback);
    /// Always writes.
    void updateCursor(const Position& position);
    /// Whether speech is being made; the coordinator knows. Writes when that changes.
    void updateSynthesizing(bool synthesizing);
    /// The words that are being spoken. Writes when they change.
    void updateSnippet(const std::string& snippet);

    /// Number of writes so far, as the document carries it.
    [[nodiscard]] std::int64_t rev() const;

  private:
    struct PlaybackFingerprint {
        State state;
        std::string messageId;
        std::int64_t elapsedSec;
        std::int64_t durationSec;
        int chunkIndex;
        int totalChunks;
        bool synthesizing;
        bool operator==(const PlaybackFingerprint&) const = default;
    };
    bool storePlayback(const Playback& playback);
    PlaybackFingerprint fingerprint() const SONRA_REQUIRES(mutex_);
    void write();
    void writeLocked();
    Json document() const SONRA_REQUIRES(mutex_);
    Json cursorObject() const SONRA_REQUIRES(mutex_);

    const std::string path_;
    mutable Mutex mutex_;
    Playback playback_ SONRA_GUARDED_BY(mutex_);
    Position position_ SONRA_GUARDED_BY(mutex_);
    bool synthesizing_ SONRA_GUARDED_BY(mutex_) = false;
    std::string snippet_ SONRA_GUARDED_BY(mutex_);
    std::int64_t rev_ SONRA_GUARDED_BY(mutex_) = 0;
    std::optional<PlaybackFingerprint> lastPlaybackFingerprint_ SONRA_GUARDED_BY(mutex_);
};

}  // namespace sonra
