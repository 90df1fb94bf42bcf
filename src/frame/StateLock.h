#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace sonra {

/// The lock of a document couldn't be had in time.
class StateLockError : public std::runtime_error {
  public:
    explicit StateLockError(std::string lockPath)
        : std::runtime_error("state-lock: lock timeout (" + lockPath + ")"),
          lockPath_(std::move(lockPath)) {}
    [[nodiscard]] const std::string& lockPath() const { return lockPath_; }

  private:
    std::string lockPath_;
};

/// The lock that this program and other processes take to rewrite the shared document at a path: a
/// file beside it that holds the owner's process id. No instances; any thread. The file is the only
/// lock, between threads as well, and it isn't re-entrant.
///
/// A lock left behind by a process that has died is reclaimed at once, any other after
/// `staleAfter`.
struct StateLock {
    static constexpr std::chrono::milliseconds staleAfter{30'000};
    static constexpr std::chrono::milliseconds retryInterval{25};
    static constexpr std::chrono::milliseconds defaultTimeout{10'000};

    /// Path of the lock file for the document at `path`.
    static std::string lockPath(const std::string& path);
    /// One attempt. One that clears a stale lock away is false as well: the next may get the lock.
    static bool tryAcquire(const std::string& path);
    /// Removes the lock file, whoever holds it.
    static void release(const std::string& path);
    /// Sleeps on the calling thread between attempts; throws StateLockError after `timeout`.
    static void acquireBlocking(const std::string& path,
                                std::chrono::milliseconds timeout = defaultTimeout);

    /// Runs `body` under the lock and hands its result, or what it throws, to the caller.
    template <typename Body>
    static decltype(auto) withLock(const std::string& path, std::chrono::milliseconds timeout,
                                   Body&& body) {
        acquireBlocking(path, timeout);
        const Releaser releaser{path};
        return std::invoke(std::forward<Body>(body));
    }
    template <typename Body>
    static decltype(auto) withLock(const std::string& path, Body&& body) {
        return withLock(path, defaultTimeout, std::forward<Body>(body));
    }

    /// The process id in a lock file; 0 for anything that isn't one.
    static std::int32_t holderOf(std::string_view content);
    /// True if a lock file with this content may be taken away from its holder.
    static bool isStale(std::string_view content, std::chrono::milliseconds age);

  private:
    struct Releaser {
        const std::string& path;
        ~Releaser() { release(path); }
    };
};

}  // namespace sonra
