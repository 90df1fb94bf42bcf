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

}  // namespace

bool acquireServiceLock(const std::optional<std::string>& lockPath) {
    const std::string path = lockPath ? *lockPath : defaultLockPath();
    // Close-on-exec: a child that inherited the descriptor would hold the lock beyond a crash.
    UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) {
        std::cerr << "tts: could not open " << path << ": " << std::strerror(errno) << std::endl;
        return false;
    }
    if (flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        const std::string reason = errno == EWOULDBLOCK
                                       ? "another Sonra service is already running"
                                       : std::string("flock failed (") + std::strerror(errno) + ")";
        std::cerr << "tts: " << reason << "; exiting duplicate service." << std::endl;
        return false;
    }
    stampPid(fd.get());
    // Left open for the life of the process: that is what holds the lock.
    held = fd.release();
    return true;
}

void releaseServiceLock() {
    if (const int fd = held.exchange(-1); fd >= 0) flock(fd, LOCK_UN);
}

}  // namespace sonra
