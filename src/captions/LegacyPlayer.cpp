#include "captions/LegacyPlayer.h"

#include <chrono>
#include <iostream>
#include <utility>

#include "captions/CaptionClient.h"
#include "captions/CaptionWindow.h"
#include "frame/FileProbe.h"
#include "frame/ThreadAffinity.h"
#include "platform/NowPlayingCenter.h"

namespace sonra {
namespace {

constexpr std::chrono::milliseconds progressInterval{100};

}  // namespace

LegacyPlayer::LegacyPlayer(MainLoop& loop, FilePlayerFactory& players, NowPlayingCenter* center,
                           WindowFactory makeWindow, Exit exit)
    : loop_(loop),
      players_(players),
      center_(center),
      makeWindow_(std::move(makeWindow)),
      exit_(std::move(exit)) {}

LegacyPlayer::~LegacyPlayer() = default;

void LegacyPlayer::run(const PlayerArgs& args) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!fileExists(args.wav)) return fail("File not found: " + args.wav);
    if (!startPlaying(args)) return;
    showNowPlaying(args);
    if (args.captions) showCaptions(args);
    progressTimer_ = loop_.every(progressInterval, [this] { showProgress(); });
}

bool LegacyPlayer::startPlaying(const PlayerArgs& args) {
    auto [player, error] =
        players_.open(args.wav, [this](bool successfully) { finished(successfully); });
    if (player) {
        player->setVolume(args.volume);
        if (!player->play()) error = "the sound could not be started";
    }
    if (!error.empty()) {
        fail("Failed to play: " + error);
        return false;
    }
    player_ = std::move(player);
    return true;
}

void LegacyPlayer::showNowPlaying(const PlayerArgs& args) const {
    if (center_ == nullptr) return;
    NowPlayingInfo playing;
    playing.title = args.title;
    playing.artist = args.artist;
    playing.duration = player_->duration();
    playing.rate = 1.0;
    center_->setInfo(playing);
    center_->setPlaybackState(PlaybackState::playing);
}

void LegacyPlayer::showCaptions(const PlayerArgs& args) {
    if (!args.captionsSock) return showWindow(args);
    client_ = CaptionClient::connect(*args.captionsSock);
    send({{"cmd", "set"}, {"text", args.snippet}});
}

void LegacyPlayer::showWindow(const PlayerArgs& args) {
    window_ = makeWindow_();
    window_->setText(args.snippet);
    window_->setPaused(false);
    window_->setStatus({NarrationStatus::Phase::playing});
    window_->show();
}

void LegacyPlayer::showProgress() {
    if (!player_->isPlaying()) return;
    const double duration = player_->duration();
    const double elapsed = player_->currentTime();
    const double progress = duration > 0 ? elapsed / duration : 0;
    if (window_) {
        window_->setElapsed(elapsed);
        window_->setDuration(duration);
        window_->updateProgress(progress);
    }
    send({{"cmd", "highlight"}, {"progress", progress}});
}

void LegacyPlayer::send(const Json& command) {
    if (client_) client_->send(command);
}

void LegacyPlayer::finished(bool successfully) {
    SONRA_ASSERT_MAIN_THREAD();
    progressTimer_.cancel();
    if (center_ != nullptr) center_->setPlaybackState(PlaybackState::stopped);
    if (!successfully) return fail("Failed to play: the sound broke off");
    exit_(0);
}

void LegacyPlayer::fail(const std::string& message) const {
    std::cerr << message << std::endl;
    exit_(1);
}

}  // namespace sonra
