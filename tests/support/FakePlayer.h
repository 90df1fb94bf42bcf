#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/FilePlayer.h"
#include "platform/MainLoop.h"

namespace sonra::test {

/// One file as it is being played: what a listener would hear of it. Outlives its player.
struct FakeSound {
    std::string path;
    double duration = 0;
    float volume = -1;  ///< below 0 until it is set
    bool playing = false;
    bool dropped = false;  ///< the player has been destroyed
    double position = 0;   ///< when it was last started, moved or halted
    MainLoop::TimePoint since{};
    LoopHandle end;
    FilePlayerFactory::FinishedCallback onFinished;
};

/// Plays silence by the clock of a loop and reports ends as the port promises. Calls are recorded
/// in order, such as "open a.wav", "play a.wav", with the file's name only. Files need not exist.
class FakePlayerFactory : public FilePlayerFactory {
  public:
    explicit FakePlayerFactory(MainLoop& loop) : loop_(loop) {}

    Opened open(const std::string& path, FinishedCallback onFinished) override;

    /// Length of files opened from now on; 2 s unless set.
    void setDuration(double seconds) { duration_ = seconds; }
    /// Opening the file fails with `error`, until it is empty again.
    void failToOpen(const std::string& path, const std::string& error) { failures_[path] = error; }
    /// `play` reports failure from now on.
    void failToPlay(bool fails) { failsToPlay_ = fails; }

    /// Runs at each call, before it takes effect, with its text as in `calls`.
    void observe(std::function<void(const std::string&)> observer) {
        observer_ = std::move(observer);
    }

    /// The sound that was opened last; null before the first.
    [[nodiscard]] const std::shared_ptr<FakeSound>& sound() const { return sound_; }
    [[nodiscard]] const std::vector<std::string>& calls() const { return calls_; }
    /// The calls since the last time.
    std::vector<std::string> takeCalls();
    /// Lets the sound break off: posts its end with a flag of false.
    void breakOff();

  private:
    friend class FakePlayer;
    void record(const std::string& call, const std::string& path);

    MainLoop& loop_;
    double duration_ = 2;
    bool failsToPlay_ = false;
    std::map<std::string, std::string> failures_;
    std::shared_ptr<FakeSound> sound_;
    std::vector<std::string> calls_;
    std::function<void(const std::string&)> observer_;
};

}  // namespace sonra::test
