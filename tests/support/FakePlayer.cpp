#include "support/FakePlayer.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace sonra::test {
namespace {

/// Posts the end; a player that is gone by then stays silent.
void postEnd(MainLoop& loop, const std::shared_ptr<FakeSound>& sound, bool successfully) {
    loop.post([sound, successfully] {
        if (sound->dropped || !sound->onFinished) return;
        // The callback may destroy the player, so it must not be run from within it.
        const auto callback = std::exchange(sound->onFinished, nullptr);
        callback(successfully);
    });
}

}  // namespace

class FakePlayer final : public FilePlayer {
  public:
    FakePlayer(FakePlayerFactory& factory, std::shared_ptr<FakeSound> sound)
        : factory_(factory), sound_(std::move(sound)) {}
    ~FakePlayer() override {
        halt();
        sound_->dropped = true;
        record("drop");
    }
    FakePlayer(const FakePlayer&) = delete;
    FakePlayer& operator=(const FakePlayer&) = delete;

    void setVolume(float volume) override {
        sound_->volume = volume;
        record("volume");
    }
    bool play() override {
        record("play");
        if (factory_.failsToPlay_) return false;
        if (!sound_->playing) run();
        return true;
    }
    void pause() override {
        record("pause");
        halt();
    }
    void stop() override {
        record("stop");
        halt();
        sound_->onFinished = nullptr;
    }
    double currentTime() const override {
        if (!sound_->playing) return sound_->position;
        const std::chrono::duration<double> played = factory_.loop_.now() - sound_->since;
        return std::min(sound_->position + played.count(), sound_->duration);
    }
    void setCurrentTime(double seconds) override {
        record("seek");
        const bool playing = sound_->playing;
        halt();
        sound_->position = seconds;
        if (playing) run();
    }
    double duration() const override { return sound_->duration; }
    bool isPlaying() const override { return sound_->playing; }

  private:
    void record(const std::string& call) const { factory_.record(call, sound_->path); }
    void halt() {
        sound_->position = currentTime();
        sound_->playing = false;
        sound_->end.cancel();
    }
    void run() {
        sound_->playing = true;
        sound_->since = factory_.loop_.now();
        const std::chrono::duration<double> left(sound_->duration - sound_->position);
        const auto atEnd = [&loop = factory_.loop_, sound = std::weak_ptr(sound_)] {
            const auto ended = sound.lock();
            ended->position = ended->duration;
            ended->playing = false;
            postEnd(loop, ended, true);
        };
        sound_->end =
            factory_.loop_.after(std::chrono::duration_cast<MainLoop::Duration>(left), atEnd);
    }

    FakePlayerFactory& factory_;
    std::shared_ptr<FakeSound> sound_;
};

FilePlayerFactory::Opened FakePlayerFactory::open(const std::string& path,
                                                  FinishedCallback onFinished) {
    record("open", path);
    if (const auto it = failures_.find(path); it != failures_.end() && !it->second.empty())
        return {nullptr, it->second};
    sound_ = std::make_shared<FakeSound>();
    sound_->path = path;
    sound_->duration = duration_;
    sound_->onFinished = std::move(onFinished);
    return {std::make_unique<FakePlayer>(*this, sound_), {}};
}

std::vector<std::string> FakePlayerFactory::takeCalls() {
    return std::exchange(calls_, {});
}

void FakePlayerFactory::breakOff() {
    sound_->playing = false;
    sound_->end.cancel();
    postEnd(loop_, sound_, false);
}

void FakePlayerFactory::record(const std::string& call, const std::string& path) {
    calls_.push_back(call + " " + std::filesystem::path(path).filename().string());
    if (observer_) observer_(calls_.back());
}

}  // namespace sonra::test
