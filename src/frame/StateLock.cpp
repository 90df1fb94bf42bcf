#include "frame/StateLock.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <thread>

#include "frame/Text.h"
#include "frame/UniqueFd.h"

namespace sonra {
namespace {

constexpr mode_t lockFileMode = 0600;
// Far more than any process id with white space around it.
constexpr std::size_t longestContent = 4096;

/// Text of the open lock file; empty if it can't be read, or is too long to be a process id.
std::string contentOf(int fd) {
    std::array<char, longestContent> buffer{};
    const auto got = ::read(fd, buffer.data(), buffer.size());
    if (got <= 0 || static_cast<std::size_t>(got) == buffer.size()) return {};
    return {buffer.data(), static_cast<std::size_t>(got)};
}

std::chrono::milliseconds ageOf(const struct stat& status) {
    using namespace std::chrono;
    const auto modified = seconds(status.st_mtim.tv_sec) + nanoseconds(status.st_mtim.tv_nsec);
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch() - modified);
}

bool isDead(std::int32_t pid) {
    return ::kill(pid, 0) != 0 && errno != EPERM;
}

bool isSameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// True if another process is reclaiming the same lock file just now: only one of them may remove
/// it, or the slower would remove the lock that somebody has taken since. Where the file system has
/// no such locks, nobody is.
bool isBeingReclaimed(int fd) {
    return ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

void reclaimIfStale(const std::string& lock) {
    // Held open until the end, so that the file's identity can't be given to another meanwhile.
    const UniqueFd fd(::open(lock.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat judged {};
    if ((fd ? ::fstat(fd.get(), &judged) : ::stat(lock.c_str(), &judged)) != 0) return;
    if (!StateLock::isStale(fd ? contentOf(fd.get()) : std::string(), ageOf(judged))) return;
    if (fd && isBeingReclaimed(fd.get())) return;
    struct stat present {};
    if (::stat(lock.c_str(), &present) == 0 && isSameFile(judged, present)) ::unlink(lock.c_str());
}

bool writeHolder(int fd) {
    const std::string pid = std::to_string(::getpid());
    return ::write(fd, pid.data(), pid.size()) == static_cast<ssize_t>(pid.size());
}

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

enum class Creation { done, exists, failed };

/// Lets the lock file appear with the holder in it: one who is killed between two steps would leave
/// an empty file, which holds everybody up until it is stale.
Creation createComplete(const std::string& lock) {
    const UniqueFd fd(
        ::open(directoryOf(lock).c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, lockFileMode));
    if (!fd || !writeHolder(fd.get())) return Creation::failed;
    const std::string unnamed = "/proc/self/fd/" + std::to_string(fd.get());
    if (::linkat(AT_FDCWD, unnamed.c_str(), AT_FDCWD, lock.c_str(), AT_SYMLINK_FOLLOW) == 0)
        return Creation::done;
    return errno == EEXIST ? Creation::exists : Creation::failed;
}

/// The way for file systems without unnamed files.
Creation createInSteps(const std::string& lock) {
    const UniqueFd fd(::open(lock.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, lockFileMode));
    if (!fd) return errno == EEXIST ? Creation::exists : Creation::failed;
    // A lock that stays empty on a full disk is still held; it is only reclaimed later.
    writeHolder(fd.get());
    return Creation::done;
}

Creation create(const std::string& lock) {
    const auto complete = createComplete(lock);
    return complete == Creation::failed ? createInSteps(lock) : complete;
}

}  // namespace

std::string StateLock::lockPath(const std::string& path) {
    return path + ".lock";
}

bool StateLock::tryAcquire(const std::string& path) {
    const std::string lock = lockPath(path);
    const auto creation = create(lock);
    if (creation == Creation::exists) reclaimIfStale(lock);
    return creation == Creation::done;
}

void StateLock::release(const std::string& path) {
    ::unlink(lockPath(path).c_str());
}

void StateLock::acquireBlocking(const std::string& path, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!tryAcquire(path)) {
        if (std::chrono::steady_clock::now() >= deadline) throw StateLockError(lockPath(path));
        std::this_thread::sleep_for(retryInterval);
    }
}

std::int32_t StateLock::holderOf(std::string_view content) {
    if (!text::isUtf8(content)) return 0;
    auto digits = text::trimmed(content);
    if (digits.starts_with('+')) digits.remove_prefix(digits.starts_with("+-") ? digits.size() : 1);
    std::int32_t pid = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
    return failure == std::errc() && end == digits.data() + digits.size() ? pid : 0;
}

bool StateLock::isStale(std::string_view content, std::chrono::milliseconds age) {
    const std::int32_t pid = holderOf(content);
    return (pid >= 1 && isDead(pid)) || age > staleAfter;
}

}  // namespace sonra
