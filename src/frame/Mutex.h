#pragma once

#include <condition_variable>
#include <mutex>

// Annotations for clang's -Wthread-safety; nothing elsewhere.
#if defined(__clang__)
#define SONRA_TSA(x) __attribute__((x))
#else
#define SONRA_TSA(x)
#endif
#define SONRA_GUARDED_BY(m) SONRA_TSA(guarded_by(m))
#define SONRA_REQUIRES(...) SONRA_TSA(requires_capability(__VA_ARGS__))
#define SONRA_EXCLUDES(...) SONRA_TSA(locks_excluded(__VA_ARGS__))

namespace sonra {

/// std::mutex that the compiler can check: fields marked SONRA_GUARDED_BY may be touched only under
/// a MutexLock.
class SONRA_TSA(capability("mutex")) Mutex {
  public:
    void lock() SONRA_TSA(acquire_capability()) { mutex_.lock(); }
    void unlock() SONRA_TSA(release_capability()) { mutex_.unlock(); }
    std::mutex& native() { return mutex_; }

  private:
    std::mutex mutex_;
};

class SONRA_TSA(scoped_lockable) MutexLock {
  public:
    explicit MutexLock(Mutex& mutex) SONRA_TSA(acquire_capability(mutex)) : lock_(mutex.native()) {}
    ~MutexLock() SONRA_TSA(release_capability()) = default;
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    /// Gives the mutex up while waiting, as std::condition_variable does.
    void wait(std::condition_variable& condition) { condition.wait(lock_); }
    template <typename TimePoint>
    std::cv_status waitUntil(std::condition_variable& condition, TimePoint deadline) {
        return condition.wait_until(lock_, deadline);
    }

  private:
    std::unique_lock<std::mutex> lock_;
};

}  // namespace sonra
