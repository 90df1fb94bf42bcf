#include "frame/ServiceLock.h"

#include "frame/Home.h"
#include "frame/UniqueFd.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>

namespace sonra {
namespace {

std::string defaultLockPath() {
    const std::string directory = sharedDirectory();
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    return directory + "/sonra.lock";
}

/// The descriptor that holds the lock; -1 while this process doesn't.
std::atomic<int> held = -1;

void stampPid(int fd) {
    const std::string pid = std::to_string(getpid()) + "\n";
    // The stamp is for people; the lock holds without it.
    if (ftruncate(fd, 0) == 0) [[maybe_unused]]
        const auto written = write(fd, pid.data(), pid.size());
}

/// Takes the lock; the outcome with what is to be said of it.
ServiceLockTry take(const std::string& path, std::string& reason) {
    // Close-on-exec: a child that inherited the descriptor would hold the lock beyond a crash.
    UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) {
        reason = "could not open " + path + ": " + std::strerror(errno);
        return ServiceLockTry::failed;
    }
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool isHeld = errno == EWOULDBLOCK;
        reason = (isHeld ? "another Sonra service is already running"
                         : std::string("flock failed (") + std::strerror(errno) + ")") +
                 "; exiting duplicate service.";
        return isHeld ? ServiceLockTry::held : ServiceLockTry::failed;
    }
    stampPid(fd.get());
    // Left open for the life of the process: that is what holds the lock.
    held = fd.release();
    return ServiceLockTry::taken;
}

}  // namespace

bool acquireServiceLock(const std::optional<std::string>& lockPath) {
    std::string reason;
    if (take(lockPath ? *lockPath : defaultLockPath(), reason) == ServiceLockTry::taken)
        return true;
    std::cerr << "tts: " << reason << std::endl;
    return false;
}

ServiceLockTry tryServiceLock(const std::optional<std::string>& lockPath) {
    std::string reason;
    return take(lockPath ? *lockPath : defaultLockPath(), reason);
}

bool holdsServiceLock() {
    return held.load() >= 0;
}

void releaseServiceLock() {
    if (const int fd = held.exchange(-1); fd >= 0) flock(fd, LOCK_UN);
}

}  // namespace sonra
