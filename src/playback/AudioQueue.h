#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "frame/AudioChunk.h"
#include "frame/Log.h"
#include "platform/FilePlayer.h"
#include "platform/MainLoop.h"
#include "playback/NarrationDuckTarget.h"
#include "playback/NowPlayingPublisher.h"
#include "playback/NowPlayingSnapshotWriter.h"
#include "playback/SpectrumFeed.h"
#include "playback/TurnQueue.h"

namespace sonra {

class NowPlayingCenter;
class WorkerPool;

/// Plays finished pieces of speech one after the other: the only place in the program that makes
/// sound.
///
/// Main thread only. Borrows its ports; owns the chunks, the player and the files of ephemeral
/// chunks. In each operation the sound changes first, then files and documents. A callback may call
/// any operation, but must not destroy the queue; what it starts begins to play once the callbacks
/// that are under way are through. A chunk that can't be played is logged and passed over.
class AudioQueue : public NarrationDuckTarget {
  public:
    using Bands = std::vector<float>;
    /// Any may be empty. Index and total number the chunks of a turn, the index from 1.
    struct Callbacks {
        std::function<void(const AudioChunk&, int index, int total)> onChunkStart;
        std::function<void()> onChunkEnd;  ///< at a natural end only
        std::function<void(double elapsed, double duration)> onProgress;
        std::function<void()> onIdle;  ///< ran dry or was cleared
        std::function<void(const Bands& levels, const Bands& peaks)> onSpectrum;
        /// At a pause, and when the backlog grows in it.
        std::function<void(std::size_t queued)> onPaused;
        std::function<void()> onResumed;
    };

    /// `center` may be null.
    AudioQueue(MainLoop& loop, FilePlayerFactory& players, WorkerPool& pool,
               NowPlayingCenter* center, std::shared_ptr<NowPlayingSnapshotWriter> snapshotWriter);
    AudioQueue(const AudioQueue&) = delete;
    AudioQueue& operator=(const AudioQueue&) = delete;

    void setCallbacks(Callbacks callbacks) { callbacks_ = std::move(callbacks); }

    /// Adds a chunk and starts it if nothing is loaded.
    void enqueue(AudioChunk chunk);
    /// Replaces what waits with one message's chunks, from `startingAt` on. The caller has cleared
    /// before: neither is the loaded chunk stopped nor are files of dropped chunks deleted.
    void enqueueAll(std::vector<AudioChunk> chunks, std::int64_t startingAt);
    /// Goes on to the next chunk.
    void skip();
    /// Drops everything.
    void clear();
    /// Puts the loaded chunk back to its start; paused stays paused.
    void restartCurrent();
    /// Moves within the loaded chunk; seconds, held between 0 and its duration.
    void seek(double seconds);

    void setVolume(float volume);  ///< linear, held between 0 and 1
    void setMuted(bool muted);
    /// While paused nothing starts. Acts, and reports, also when the value stays the same.
    void setPaused(bool paused) override;

    [[nodiscard]] float volume() const { return volume_; }
    [[nodiscard]] bool muted() const { return muted_; }
    [[nodiscard]] bool paused() const override { return paused_; }
    /// Without the loaded chunk.
    [[nodiscard]] std::size_t queuedCount() const { return queue_.size(); }
    [[nodiscard]] bool isCurrentlyPlaying() const override {
        return current_ && current_->isPlaying();
    }
    /// The loaded chunk, if any, and the player's view of it; null when nothing is loaded.
    [[nodiscard]] const std::optional<AudioChunk>& currentChunk() const { return currentChunk_; }
    [[nodiscard]] const FilePlayer* current() const { return current_.get(); }
    [[nodiscard]] int chunkIndexThisTurn() const { return queue_.chunkIndexThisTurn(); }
    [[nodiscard]] int totalChunksThisTurn() const { return queue_.totalChunksThisTurn(); }
    [[nodiscard]] NowPlayingSnapshotWriter& snapshotWriter() { return *snapshotWriter_; }

    /// Removes the chunk's file if it belongs to the queue; errors are dropped.
    static void deleteIfEphemeral(const AudioChunk& chunk);

  private:
    template <typename Body>
    void holding(Body body);
    void advance();
    void advanceNow();
    void advanceLater();
    void becomeIdle();
    bool startPlaying(AudioChunk chunk);
    FilePlayerFactory::Opened openAndPlay(const std::string& path);
    void finished(std::uint64_t playerNumber, bool successfully);
    void endCurrent(bool successfully);
    void cleanupCurrent();
    void resumeCurrent();
    void applyVolume(FilePlayer& player) const;
    void showPlaybackState();
    void refreshNowPlaying(bool force);
    void startTimers();
    void stopProgressTimer();
    void progressTick();
    void writeSnapshot(NowPlayingSnapshotWriter::State state);
    void writeSnapshot();

    MainLoop& loop_;
    FilePlayerFactory& players_;
    const std::shared_ptr<NowPlayingSnapshotWriter> snapshotWriter_;
    const Log log_;
    NowPlayingPublisher nowPlaying_;
    SpectrumFeed spectrum_;
    Callbacks callbacks_;

    TurnQueue queue_;
    std::unique_ptr<FilePlayer> current_;  ///< set exactly while currentChunk_ is
    std::optional<AudioChunk> currentChunk_;
    float volume_ = 1.0F;
    bool muted_ = false;
    bool paused_ = false;
    LoopHandle progressTimer_;
    LoopHandle diskTimer_;

    std::uint64_t playerNumber_ = 0;  ///< tells the present player's end from an earlier one's
    bool held_ = false;               ///< callbacks are under way, so that starts wait
    bool advanceWanted_ = false;
    std::shared_ptr<AudioQueue*> self_;  ///< expires with the queue
};

}  // namespace sonra
