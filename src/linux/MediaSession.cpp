#include "linux/MediaSession.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

/// A pushed position that is further than that from the one expected is a jump; less is the
/// wavering of clocks.
constexpr double tolerance = 0.3;
constexpr double microseconds = 1e6;
/// Far beyond any sound, and far within the range of the conversion.
constexpr double longest = 1e9;

/// Not a number counts as zero.
double bounded(double value, double most) {
    return value > 0 ? std::min(value, most) : 0;
}

std::int64_t toUs(double seconds) {
    return std::llround(bounded(seconds, longest) * microseconds);
}

bool isSameTrack(const NowPlayingInfo& a, const NowPlayingInfo& b) {
    return a.title == b.title && a.artist == b.artist && a.albumTitle == b.albumTitle &&
           a.duration == b.duration;
}

}  // namespace

void MediaSession::setInfo(std::optional<NowPlayingInfo> info) {
    SONRA_ASSERT_MAIN_THREAD();
    const bool begins = info && !info_;
    const bool isNew = info && (begins || !isSameTrack(*info, *info_));
    const double expected = position();
    info_ = std::move(info);
    anchor(info_ ? info_->elapsed : 0);
    if (isNew) ++track_;
    if (info_ && (isNew || std::abs(position() - expected) > tolerance)) jumpedTo_ = positionUs();
    if (begins) {
        offered_ = true;
        offer();
    }
    changed();
}

void MediaSession::setPlaybackState(PlaybackState state) {
    SONRA_ASSERT_MAIN_THREAD();
    anchor(position());
    state_ = state;
    changed();
}

void MediaSession::setHandlers(Handlers handlers) {
    SONRA_ASSERT_MAIN_THREAD();
    handlers_ = std::move(handlers);
    changed();
}

void MediaSession::setCanNavigate(bool can) {
    SONRA_ASSERT_MAIN_THREAD();
    canNavigate_ = can;
    changed();
}

void MediaSession::setVolume(double gain) {
    SONRA_ASSERT_MAIN_THREAD();
    volume_ = bounded(gain, 1);
    changed();
}

void MediaSession::retire() {
    SONRA_ASSERT_MAIN_THREAD();
    info_.reset();
    state_ = PlaybackState::stopped;
    anchor(0);
    if (std::exchange(offered_, false)) withdraw();
}

MediaView MediaSession::view() const {
    MediaView view;
    view.state = info_ ? state_ : PlaybackState::stopped;
    view.volume = volume_;
    view.canPlay = handlers_.play != nullptr;
    view.canPause = handlers_.pause != nullptr;
    view.canNavigate = canNavigate_;
    if (!info_) return view;
    view.track = track_;
    view.title = info_->title;
    view.artist = info_->artist;
    view.album = info_->albumTitle.value_or("");
    view.lengthUs = toUs(info_->duration);
    view.canSeek = handlers_.seek != nullptr && view.lengthUs > 0;
    return view;
}

std::int64_t MediaSession::positionUs() const {
    return toUs(position());
}

bool MediaSession::isRunning() const {
    return info_ && state_ == PlaybackState::playing && info_->rate > 0;
}

double MediaSession::position() const {
    if (!info_) return 0;
    const std::chrono::duration<double> passed =
        isRunning() ? loop_.now() - since_ : MainLoop::Duration::zero();
    return bounded(elapsed_ + passed.count(), info_->duration > 0 ? info_->duration : longest);
}

void MediaSession::anchor(double elapsed) {
    elapsed_ = elapsed;
    since_ = loop_.now();
}

/// By copy, since a handler may set others.
void MediaSession::run(const Handler& handler) {
    if (const auto copy = handler) copy();
}

void MediaSession::next() const {
    if (canNavigate_) run(handlers_.nextTrack);
}

void MediaSession::previous() const {
    if (canNavigate_) run(handlers_.previousTrack);
}

void MediaSession::seekBy(std::int64_t offsetUs) {
    if (!view().canSeek) return;
    const double target = position() + static_cast<double>(offsetUs) / microseconds;
    if (target > info_->duration) return next();
    seek(std::max(target, 0.0));
}

void MediaSession::seekTo(std::uint64_t track, std::int64_t positionUs) {
    const auto now = view();
    if (!now.canSeek || track != now.track || positionUs < 0 || positionUs > now.lengthUs) return;
    seek(static_cast<double>(positionUs) / microseconds);
}

/// A client that asked for it is told where it came out, also after a step too short for a jump.
void MediaSession::seek(double seconds) {
    const auto handler = handlers_.seek;
    handler(seconds);
    jumpedTo_ = positionUs();
    changed();
}

void MediaSession::changeVolume(double gain) const {
    if (const auto handler = handlers_.volume; handler && !std::isnan(gain))
        handler(bounded(gain, 1));
}

void MediaSession::changed() {
    if (!offered_ || std::exchange(flushUnderWay_, true)) return;
    loop_.post([weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) (*self)->flush();
    });
}

void MediaSession::flush() {
    flushUnderWay_ = false;
    const auto jumpedTo = std::exchange(jumpedTo_, std::nullopt);
    if (offered_) publish(view(), info_ ? jumpedTo : std::nullopt);
}

}  // namespace sonra
