#pragma once

#include <chrono>

#include "platform/MainLoop.h"

namespace sonra {

/// Starts the daemon with the service, and again should it die: the file with its process id then
/// names nobody. One that was asked to end takes that file along, and stays away.
///
/// Main thread only; the loop must outlive it. Where the control tool can't be started, nothing
/// happens, and the log has the reason.
class DaemonKeeper {
  public:
    /// How long after a look that found all well the next one comes. One that found the daemon dead
    /// is followed by longer ones: a daemon that can't live must not cost anything.
    static constexpr std::chrono::milliseconds lookInterval{30000};
    static constexpr std::chrono::milliseconds longestInterval{600000};

    explicit DaemonKeeper(MainLoop& loop) : loop_(loop) {}

    void start();

  private:
    void lookLater(std::chrono::milliseconds delay);
    void look();

    MainLoop& loop_;
    std::chrono::milliseconds interval_ = lookInterval;
    LoopHandle timer_;
};

}  // namespace sonra
