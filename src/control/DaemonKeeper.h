#pragma once

#include <chrono>
#include <memory>

#include "frame/ChildProcess.h"
#include "frame/Semaphore.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Starts the daemon with the service, and again should it die, when the file with its process id
/// names nobody, or should it fail to start, which the control tool tells. One that was asked to
/// end takes that file along, and stays away. A start that is under way is waited for.
///
/// Main thread only, but for `stop`; the loop must outlive it. Where the control tool can't be
/// started, nothing happens, and the log has the reason.
class DaemonKeeper {
  public:
    /// How long after a look that found all well the next one comes. One that found the daemon dead
    /// is followed by longer ones: a daemon that can't live must not cost anything.
    static constexpr std::chrono::milliseconds lookInterval{30000};
    static constexpr std::chrono::milliseconds longestInterval{600000};
    /// How long the end of a control tool is waited for.
    static constexpr std::chrono::milliseconds endLimit{200};

    explicit DaemonKeeper(MainLoop& loop) : loop_(loop) {}

    void start();
    /// Starts nothing any more, and ends a control tool that is about to: what is told to the
    /// daemon afterwards is told to one that is there or won't come. Any thread; returns within
    /// twice `endLimit`, though another thread hang in here.
    void stop();

  private:
    bool standby();
    const char* reasonToStart();
    void lookLater(std::chrono::milliseconds delay);
    void look();

    MainLoop& loop_;
    std::chrono::milliseconds interval_ = lookInterval;
    LoopHandle timer_;
    Semaphore idle_{1};  ///< held while what follows is looked at or changed
    bool isStopped_ = false;
    std::unique_ptr<ChildProcess> standby_;  ///< the last, until a daemon was seen alive
};

}  // namespace sonra
