#include "playback/NowPlayingSnapshotWriter.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string_view>
#include <utility>

#include "frame/AtomicFile.h"
#include "frame/Home.h"
#include "frame/StateLock.h"

namespace sonra {
namespace {

constexpr std::chrono::milliseconds lockTimeout{1000};

/// Keeps times that a broken file claims within what whole seconds and JSON can hold.
constexpr double longestTime = 1e9;

double sane(double seconds) {
    return std::isfinite(seconds) ? std::clamp(seconds, -longestTime, longestTime) : 0;
}

std::string_view name(NowPlayingSnapshotWriter::State state) {
    switch (state) {
        case NowPlayingSnapshotWriter::State::playing:
            return "playing";
        case NowPlayingSnapshotWriter::State::paused:
            return "paused";
        case NowPlayingSnapshotWriter::State::idle:
            break;
    }
    return "idle";
}

bool directoryExists(const std::string& path) {
    std::error_code ignored;
    const auto directory = std::filesystem::path(path).parent_path();
    return directory.empty() || std::filesystem::is_directory(directory, ignored);
}

}  // namespace

std::string NowPlayingSnapshotWriter::defaultPath() {
    return sharedDirectory() + "/now-playing.json";
}

NowPlayingSnapshotWriter::NowPlayingSnapshotWriter(std::string path) : path_(std::move(path)) {}

std::int64_t NowPlayingSnapshotWriter::rev() const {
    const MutexLock lock(mutex_);
    return rev_;
}

void NowPlayingSnapshotWriter::updatePlayback(const Playback& playback) {
    if (storePlayback(playback)) write();
}

/// True if the change is to be written.
bool NowPlayingSnapshotWriter::storePlayback(const Playback& playback) {
    const MutexLock lock(mutex_);
    playback_ = {playback.state, playback.messageId};
    if (playback.state != State::idle) {
        playback_ = playback;
        playback_.elapsed = sane(playback.elapsed);
        playback_.duration = sane(playback.duration);
    }
    auto present = fingerprint();
    if (lastPlaybackFingerprint_ == present) return false;
    lastPlaybackFingerprint_ = std::move(present);
    return true;
}

NowPlayingSnapshotWriter::PlaybackFingerprint NowPlayingSnapshotWriter::fingerprint() const {
    return {playback_.state,
            playback_.messageId,
            std::llround(playback_.elapsed),
            std::llround(playback_.duration),
            playback_.chunkIndex,
            playback_.totalChunks,
            synthesizing_};
}

void NowPlayingSnapshotWriter::updateCursor(const Position& position) {
    {
        const MutexLock lock(mutex_);
        position_ = position;
    }
    write();
}

void NowPlayingSnapshotWriter::updateSynthesizing(bool synthesizing) {
    {
        const MutexLock lock(mutex_);
        if (std::exchange(synthesizing_, synthesizing) == synthesizing) return;
    }
    write();
}

void NowPlayingSnapshotWriter::updateSnippet(const std::string& snippet) {
    {
        const MutexLock lock(mutex_);
        if (snippet_ == snippet) return;
        snippet_ = snippet;
    }
    write();
}

/// A document that comes late or twice is better than one that stands still, so a lock that can't
/// be had doesn't stop the write. Where there is no directory nobody holds a lock, and nothing is
/// worth the wait.
void NowPlayingSnapshotWriter::write() {
    if (!directoryExists(path_)) return writeLocked();
    try {
        StateLock::withLock(path_, lockTimeout, [this] { writeLocked(); });
    } catch (const StateLockError&) {
        writeLocked();
    }
}

void NowPlayingSnapshotWriter::writeLocked() {
    const MutexLock lock(mutex_);
    ++rev_;
    AtomicFile::write(path_, json::dump(document()));
}

Json NowPlayingSnapshotWriter::document() const {
    return {{"schema", schemaVersion},
            {"state", name(playback_.state)},
            {"messageId", playback_.messageId},
            {"elapsed", playback_.elapsed},
            {"duration", playback_.duration},
            {"sessionId", position_.sessionId},
            {"live",
             {{"messageIndex", position_.liveMessageIndex},
              {"totalMessages", position_.liveTotalMessages}}},
            {"cursor", cursorObject()},
            {"newLiveCount", position_.newLiveCount},
            {"snippet", snippet_},
            {"synthesizing", synthesizing_},
            {"rev", rev_}};
}

Json NowPlayingSnapshotWriter::cursorObject() const {
    Json object{{"kind", "idle"},
                {"messageIndex", 0},
                {"totalKnown", 0},
                {"chunkIndex", playback_.chunkIndex},
                {"totalChunks", playback_.totalChunks}};
    if (const auto* history = std::get_if<History>(&position_.cursor)) {
        object["kind"] = "history";
        object["messageIndex"] = history->messageIndex;
        object["totalKnown"] = history->totalKnown;
    } else if (std::holds_alternative<Live>(position_.cursor)) {
        object["kind"] = "live";
        object["totalKnown"] = position_.liveTotalMessages;
    }
    return object;
}

}  // namespace sonra
