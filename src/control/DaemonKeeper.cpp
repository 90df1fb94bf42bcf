#include "control/DaemonKeeper.h"

#include <signal.h>

#include <algorithm>
#include <cerrno>

#include "control/CtlRunner.h"
#include "frame/AtomicFile.h"
#include "frame/Home.h"
#include "frame/Log.h"
#include "frame/StateLock.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

enum class Daemon { absent, dead, alive };

/// By the file with its process id.
Daemon daemon() {
    const auto content = AtomicFile::read(sharedDirectory() + "/daemon.pid");
    const auto pid = content ? StateLock::holderOf(*content) : 0;
    if (pid < 1) return Daemon::absent;
    return ::kill(pid, 0) != 0 && errno == ESRCH ? Daemon::dead : Daemon::alive;
}

/// Holds `idle` until it goes, as a lock would. A timed mutex would do, but ThreadSanitizer doesn't
/// see how it is locked.
class Turn {
  public:
    explicit Turn(Semaphore& idle) : idle_(&idle) { idle.wait(); }
    Turn(Semaphore& idle, std::chrono::milliseconds limit)
        : idle_(idle.waitFor(limit) ? &idle : nullptr) {}
    ~Turn() {
        if (idle_ != nullptr) idle_->signal();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    explicit operator bool() const { return idle_ != nullptr; }

  private:
    Semaphore* idle_;
};

}  // namespace

void DaemonKeeper::start() {
    SONRA_ASSERT_MAIN_THREAD();
    if (standby()) lookLater(interval_);
}

void DaemonKeeper::stop() {
    const Turn turn(idle_, endLimit);
    if (!turn) return;
    isStopped_ = true;
    if (!standby_ || !standby_->isRunning()) return;
    // At once and with all its group: it has nothing to put in order, and a shell that heeds a
    // gentler signal would leave the tool behind.
    standby_->kill();
    standby_->waitForExit(endLimit);
}

bool DaemonKeeper::standby() {
    const Turn turn(idle_);
    if (isStopped_) return false;
    standby_ = startCtl({"standby"});
    return standby_ != nullptr;
}

/// Null if there is none.
const char* DaemonKeeper::reasonToStart() {
    const Turn turn(idle_);
    if (isStopped_) return nullptr;
    // On a busy machine a start takes a while, and the file may still name one of an earlier run.
    if (standby_ && standby_->isRunning()) return nullptr;
    const auto present = daemon();
    if (present == Daemon::dead) return "daemon has died; starting it again";
    // Should it end from now on, it was asked to, however it came to be.
    if (present == Daemon::alive) standby_ = nullptr;
    const bool hasFailed =
        standby_ && standby_->waitForExit(ChildProcess::Duration::zero()).value_or(0) != 0;
    return hasFailed ? "daemon couldn't be started; trying again" : nullptr;
}

void DaemonKeeper::lookLater(std::chrono::milliseconds delay) {
    timer_ = loop_.after(delay, [this] { look(); });
}

void DaemonKeeper::look() {
    SONRA_ASSERT_MAIN_THREAD();
    if (const auto* reason = reasonToStart()) {
        Log::shared().child({{"class", "DaemonKeeper"}}).warn(reason);
        standby();
        interval_ = std::min(interval_ * 2, longestInterval);
    } else {
        interval_ = lookInterval;
    }
    lookLater(interval_);
}

}  // namespace sonra
