#include "playback/NowPlayingPublisher.h"

#include "frame/AudioChunk.h"
#include "frame/Text.h"
#include "platform/MainLoop.h"
#include "platform/NowPlayingCenter.h"

namespace sonra {
namespace {

/// Characters of a chunk's album line that are shown.
constexpr std::size_t longestAlbumTitle = 120;

}  // namespace

double NowPlayingPublisher::uptime() const {
    return std::chrono::duration<double>(loop_.now().time_since_epoch()).count();
}

void NowPlayingPublisher::begin(const AudioChunk& chunk, double duration) {
    if (center_ == nullptr) return;
    NowPlayingInfo info{chunk.title, chunk.artist, std::nullopt, duration, 0, 1.0};
    if (!chunk.albumLine.empty())
        info.albumTitle = text::prefix(chunk.albumLine, longestAlbumTitle);
    center_->setInfo(std::move(info));
    center_->setPlaybackState(PlaybackState::playing);
    lastNowPlayingPush_ = uptime();
}

void NowPlayingPublisher::setPlaying(bool playing) {
    if (center_ != nullptr)
        center_->setPlaybackState(playing ? PlaybackState::playing : PlaybackState::paused);
}

void NowPlayingPublisher::refresh(double elapsed, bool playing, bool force) {
    const double now = uptime();
    if (center_ == nullptr || !shouldPushNowPlaying(now, lastNowPlayingPush_, force)) return;
    lastNowPlayingPush_ = now;
    auto info = center_->info().value_or(NowPlayingInfo{});
    info.elapsed = elapsed;
    info.rate = playing ? 1.0 : 0.0;
    center_->setInfo(std::move(info));
}

void NowPlayingPublisher::clear() {
    if (center_ == nullptr) return;
    center_->setInfo(std::nullopt);
    center_->setPlaybackState(PlaybackState::stopped);
}

}  // namespace sonra
