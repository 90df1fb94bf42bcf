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

bool isDaemonDead() {
    const auto content = AtomicFile::read(sharedDirectory() + "/daemon.pid");
    const auto pid = content ? StateLock::holderOf(*content) : 0;
    return pid >= 1 && ::kill(pid, 0) != 0 && errno == ESRCH;
}

}  // namespace

void DaemonKeeper::start() {
    SONRA_ASSERT_MAIN_THREAD();
    if (runCtl({"standby"})) lookLater(interval_);
}

void DaemonKeeper::lookLater(std::chrono::milliseconds delay) {
    timer_ = loop_.after(delay, [this] { look(); });
}

void DaemonKeeper::look() {
    SONRA_ASSERT_MAIN_THREAD();
    if (isDaemonDead()) {
        Log::shared().child({{"class", "DaemonKeeper"}}).warn("daemon has died; starting it again");
        runCtl({"standby"});
        interval_ = std::min(interval_ * 2, longestInterval);
    } else {
        interval_ = lookInterval;
    }
    lookLater(interval_);
}

}  // namespace sonra
