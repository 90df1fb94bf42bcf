#include "playback/AudioQueue.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using SnapshotState = NowPlayingSnapshotWriter::State;

constexpr auto progressInterval = 80ms;
constexpr auto diskInterval = 400ms;
constexpr auto slowOpen = 100ms;

/// Takes the callback by value, since it may replace the queue's callbacks while it runs.
template <typename Callback, typename... Arguments>
void notify(Callback callback, const Arguments&... arguments) {
    if (callback) callback(arguments...);
}

}  // namespace

AudioQueue::AudioQueue(MainLoop& loop, FilePlayerFactory& players, WorkerPool& pool,
                       NowPlayingCenter* center,
                       std::shared_ptr<NowPlayingSnapshotWriter> snapshotWriter)
    : loop_(loop),
      players_(players),
      snapshotWriter_(std::move(snapshotWriter)),
      log_(Log::shared().child({{"class", "AudioQueue"}})),
      nowPlaying_(loop, center),
      spectrum_(loop, pool),
      self_(std::make_shared<AudioQueue*>(this)) {}

void AudioQueue::deleteIfEphemeral(const AudioChunk& chunk) {
    if (chunk.ephemeral) unlink(chunk.url.c_str());
}

/// Runs `body`, which may call back, with starts held until it is through: chunks never start
/// inside one another's callbacks, however many of them fail, end or are skipped in a row. In a
/// pause a start stays wanted.
template <typename Body>
void AudioQueue::holding(Body body) {
    const bool outermost = !std::exchange(held_, true);
    body();
    if (!outermost) return;
    while (!paused_ && std::exchange(advanceWanted_, false)) advanceNow();
    held_ = false;
}

void AudioQueue::advance() {
    holding([this] { advanceWanted_ = true; });
}

void AudioQueue::advanceNow() {
    if (current_) return;
    while (!queue_.empty()) {
        const auto before = loop_.now();
        if (startPlaying(queue_.takeNext())) return;
        // A sound server that hangs takes its time over every chunk: others get their turn between.
        if (loop_.now() - before > slowOpen && !queue_.empty()) return advanceLater();
    }
    becomeIdle();
}

void AudioQueue::advanceLater() {
    loop_.post([self = std::weak_ptr(self_)] {
        const auto queue = self.lock();
        if (queue && !(*queue)->queue_.empty()) (*queue)->advance();
    });
}

void AudioQueue::becomeIdle() {
    stopProgressTimer();
    spectrum_.reset();
    nowPlaying_.clear();
    notify(callbacks_.onSpectrum, spectrum_.zeros(), spectrum_.zeros());
    notify(callbacks_.onIdle);
}

void AudioQueue::enqueue(AudioChunk chunk) {
    SONRA_ASSERT_MAIN_THREAD();
    Json fields{{"sessionId", chunk.sessionId}, {"length", text::characterCount(chunk.text)}};
    queue_.add(std::move(chunk), current_ != nullptr);
    fields["queueDepth"] = queue_.size();
    log_.info("chunk enqueued", {{"input", std::move(fields)}});
    if (current_) {
        writeSnapshot();
    } else {
        advance();
    }
    if (paused_) notify(callbacks_.onPaused, queue_.size());
}

void AudioQueue::enqueueAll(std::vector<AudioChunk> chunks, std::int64_t startingAt) {
    SONRA_ASSERT_MAIN_THREAD();
    if (chunks.empty()) return;
    const auto count = static_cast<std::int64_t>(chunks.size());
    const auto start = std::clamp<std::int64_t>(startingAt, 0, count - 1);
    if (start != startingAt)
        log_.warn("enqueueAll index clamped (probe/ring mismatch)",
                  {{"input", {{"requested", startingAt}, {"clampedTo", start}, {"count", count}}}});
    queue_.replace(std::move(chunks), static_cast<std::size_t>(start));
    log_.info("seek-enqueue", {{"input", {{"count", count}, {"startIndex", start}}}});
    if (!current_) advance();
}

/// True if the chunk plays now; otherwise it is done with.
bool AudioQueue::startPlaying(AudioChunk chunk) {
    auto opened = openAndPlay(chunk.url);
    if (!opened.player) {
        log_.error("audio open failed", std::runtime_error(opened.error));
        std::fprintf(stderr, "audio open failed: %s\n", opened.error.c_str());
        deleteIfEphemeral(chunk);
        return false;
    }
    current_ = std::move(opened.player);
    currentChunk_ = std::move(chunk);
    const double duration = current_->duration();
    nowPlaying_.begin(*currentChunk_, duration);
    spectrum_.begin(currentChunk_->url);
    stopProgressTimer();
    startTimers();
    writeSnapshot(SnapshotState::playing);
    log_.info("playback started", {{"result", {{"duration", duration}}}});
    const AudioChunk started = *currentChunk_;
    notify(callbacks_.onChunkStart, started, chunkIndexThisTurn(), totalChunksThisTurn());
    return true;
}

FilePlayerFactory::Opened AudioQueue::openAndPlay(const std::string& path) {
    const auto onFinished = [self = std::weak_ptr(self_),
                             number = ++playerNumber_](bool successfully) {
        if (const auto queue = self.lock()) (*queue)->finished(number, successfully);
    };
    auto opened = players_.open(path, onFinished);
    if (!opened.player) return opened;
    applyVolume(*opened.player);
    if (opened.player->play()) return opened;
    return {nullptr, "the sound can't be started"};
}

void AudioQueue::finished(std::uint64_t playerNumber, bool successfully) {
    SONRA_ASSERT_MAIN_THREAD();
    if (current_ && playerNumber == playerNumber_) endCurrent(successfully);
}

void AudioQueue::endCurrent(bool successfully) {
    log_.info("chunk finished", {{"result", {{"flag", successfully}}}});
    cleanupCurrent();
    holding([this] {
        advanceWanted_ = true;
        notify(callbacks_.onChunkEnd);
    });
}

void AudioQueue::cleanupCurrent() {
    if (currentChunk_) deleteIfEphemeral(*currentChunk_);
    currentChunk_.reset();
    current_.reset();
    stopProgressTimer();
}

void AudioQueue::skip() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!current_) return;
    current_->stop();
    log_.info("skip");
    cleanupCurrent();
    advance();
}

void AudioQueue::clear() {
    SONRA_ASSERT_MAIN_THREAD();
    if (current_) current_->stop();
    log_.info("queue cleared", {{"input", {{"queueDepth", queue_.size()}}}});
    for (const auto& chunk : queue_.dropAll()) deleteIfEphemeral(chunk);
    cleanupCurrent();
    spectrum_.reset();
    nowPlaying_.clear();
    advanceWanted_ = false;
    holding([this] {
        notify(callbacks_.onSpectrum, spectrum_.zeros(), spectrum_.zeros());
        notify(callbacks_.onIdle);
    });
}

void AudioQueue::restartCurrent() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!current_) return;
    current_->setCurrentTime(0);
    if (paused_) {
        showPlaybackState();
    } else {
        resumeCurrent();
    }
}

void AudioQueue::seek(double seconds) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!current_ || std::isnan(seconds)) return;
    current_->setCurrentTime(std::clamp(seconds, 0.0, std::max(current_->duration(), 0.0)));
    refreshNowPlaying(true);
}

void AudioQueue::setVolume(float volume) {
    SONRA_ASSERT_MAIN_THREAD();
    volume_ = volume > 0 ? std::min(volume, 1.0F) : 0;
    if (current_) applyVolume(*current_);
}

void AudioQueue::setMuted(bool muted) {
    SONRA_ASSERT_MAIN_THREAD();
    muted_ = muted;
    if (current_) applyVolume(*current_);
}

void AudioQueue::applyVolume(FilePlayer& player) const {
    player.setVolume(muted_ ? 0 : volume_);
}

void AudioQueue::setPaused(bool paused) {
    SONRA_ASSERT_MAIN_THREAD();
    paused_ = paused;
    if (!current_) {
        holding([] {});  // lets a start happen that the pause has put off
    } else if (paused) {
        current_->pause();
        showPlaybackState();
    } else {
        resumeCurrent();
    }
    if (paused_) {
        notify(callbacks_.onPaused, queue_.size());
    } else {
        notify(callbacks_.onResumed);
    }
}

/// A sound that can't go on has ended.
void AudioQueue::resumeCurrent() {
    if (!current_->play()) return endCurrent(false);
    showPlaybackState();
}

void AudioQueue::showPlaybackState() {
    nowPlaying_.setPlaying(isCurrentlyPlaying());
    refreshNowPlaying(true);
}

void AudioQueue::refreshNowPlaying(bool force) {
    if (current_) nowPlaying_.refresh(current_->currentTime(), current_->isPlaying(), force);
}

void AudioQueue::startTimers() {
    progressTimer_ = loop_.every(progressInterval, [this] { progressTick(); });
    diskTimer_ = loop_.every(diskInterval, [this] { writeSnapshot(); });
}

void AudioQueue::stopProgressTimer() {
    progressTimer_.cancel();
    diskTimer_.cancel();
    writeSnapshot(SnapshotState::idle);
}

/// Goes on during a pause, so that the bars come to rest.
void AudioQueue::progressTick() {
    holding([this] {
        notify(callbacks_.onProgress, current_->currentTime(), current_->duration());
        if (!current_) return;
        refreshNowPlaying(false);
        const auto time = paused_ ? std::nullopt : std::optional(current_->currentTime());
        const auto bars = spectrum_.tick(time);
        notify(callbacks_.onSpectrum, bars.levels, bars.peaks);
    });
}

void AudioQueue::writeSnapshot() {
    writeSnapshot(paused_ ? SnapshotState::paused : SnapshotState::playing);
}

void AudioQueue::writeSnapshot(SnapshotState state) {
    NowPlayingSnapshotWriter::Playback playback;
    playback.state = state;
    if (currentChunk_) playback.messageId = currentChunk_->messageId;
    if (current_) {
        playback.elapsed = current_->currentTime();
        playback.duration = current_->duration();
    }
    playback.chunkIndex = std::max(chunkIndexThisTurn() - 1, 0);
    playback.totalChunks = totalChunksThisTurn();
    snapshotWriter_->updatePlayback(playback);
}

}  // namespace sonra
