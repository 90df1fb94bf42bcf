#include "linux/PulseFilePlayer.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "frame/Log.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

constexpr auto streamName = "Speech";

void warnOfBreak(const std::string& reason) {
    Log::shared()
        .child({{"class", "PulseFilePlayer"}})
        .warn("sound broke off", {{"result", {{"reason", reason}}}});
}

}  // namespace

PulseFilePlayer::PulseFilePlayer(MainLoop& loop, std::shared_ptr<PulseConnection> connection,
                                 std::shared_ptr<SoundFileReader> reader,
                                 FilePlayerFactory::FinishedCallback onFinished)
    : loop_(loop),
      connection_(std::move(connection)),
      reader_(std::move(reader)),
      onFinished_(std::move(onFinished)),
      self_(std::make_shared<PulseFilePlayer*>(this)) {}

PulseFilePlayer::~PulseFilePlayer() {
    stop();
}

std::optional<std::string> PulseFilePlayer::prepare() {
    SONRA_ASSERT_MAIN_THREAD();
    if (stream_ || nothingLeft()) return std::nullopt;
    reader_->seek(std::llround(position_ * reader_->rate()));
    stream_ = std::make_unique<PulsePlaybackStream>(connection_, reader_, endReport());
    auto error = stream_->open(streamName, volume_, Patience(serverLimit));
    if (error) dropStream();
    return error;
}

PulsePlaybackStream::EndCallback PulseFilePlayer::endReport() {
    return [&loop = loop_, weak = std::weak_ptr(self_), number = ++streamNumber_](
               End end, const std::string& reason) {
        loop.post([weak, number, end, reason] {
            if (const auto self = weak.lock()) (*self)->ended(number, end, reason);
        });
    };
}

bool PulseFilePlayer::play() {
    SONRA_ASSERT_MAIN_THREAD();
    if (over_) return false;
    return running_ || start();
}

bool PulseFilePlayer::start() {
    letGo_.cancel();
    running_ = true;
    if (nothingLeft()) {
        endReport()(End::heard, {});
        return true;
    }
    if (const auto error = prepare()) {
        giveUp(*error);
        return false;
    }
    stream_->run();
    return true;
}

/// The end is decided and its report under way: from here on only `stop` makes a difference. The
/// reason is logged now, since a caller who was refused may not wait for the report.
void PulseFilePlayer::giveUp(const std::string& reason) {
    over_ = true;
    running_ = false;
    warnOfBreak(reason);
    loop_.post([weak = std::weak_ptr(self_)] {
        if (const auto self = weak.lock()) (*self)->finish(false);
    });
}

void PulseFilePlayer::pause() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!std::exchange(running_, false) || !stream_) return;
    stream_->stand();
    letGo_ = loop_.after(streamHeldFor, [this] { dropStream(); });
}

void PulseFilePlayer::stop() {
    SONRA_ASSERT_MAIN_THREAD();
    over_ = true;
    running_ = false;
    self_.reset();
    dropStream();
}

/// Silences at once and keeps the position.
void PulseFilePlayer::dropStream() {
    position_ = currentTime();
    stream_.reset();
    letGo_.cancel();
    ++streamNumber_;
}

double PulseFilePlayer::currentTime() const {
    SONRA_ASSERT_MAIN_THREAD();
    return stream_ ? std::min(position_ + stream_->heard(), duration()) : position_;
}

void PulseFilePlayer::setCurrentTime(double seconds) {
    SONRA_ASSERT_MAIN_THREAD();
    if (over_) return;
    dropStream();
    position_ = std::clamp(seconds, 0.0, duration());
    if (running_) start();
}

void PulseFilePlayer::setVolume(float volume) {
    SONRA_ASSERT_MAIN_THREAD();
    const float wanted = std::clamp(volume, 0.0F, 1.0F);
    if (std::exchange(volume_, wanted) != wanted && stream_) stream_->setVolume(wanted);
}

double PulseFilePlayer::duration() const {
    return static_cast<double>(reader_->frames()) / reader_->rate();
}

bool PulseFilePlayer::nothingLeft() const {
    return std::llround(position_ * reader_->rate()) >= reader_->frames();
}

void PulseFilePlayer::ended(int streamNumber, End end, const std::string& reason) {
    if (over_ || streamNumber != streamNumber_) return;
    const bool silentLoss = end == End::broken && stream_ && !running_;
    if (silentLoss) {
        dropStream();
        return;
    }
    if (end != End::heard) warnOfBreak(reason);
    finish(end == End::heard);
}

/// The callback may destroy the player.
void PulseFilePlayer::finish(bool successfully) {
    over_ = true;
    running_ = false;
    dropStream();
    if (successfully) position_ = duration();
    if (const auto onFinished = std::exchange(onFinished_, nullptr)) onFinished(successfully);
}

}  // namespace sonra
