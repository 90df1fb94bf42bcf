#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>

#include "frame/Mutex.h"

namespace sonra {

/// A counting semaphore. Any thread may signal or wait.
class Semaphore {
  public:
    explicit Semaphore(std::size_t initial = 0) : count_(initial) {}

    void signal() {
        const MutexLock lock(mutex_);
        ++count_;
        // Under the lock: the waiter may destroy the semaphore as soon as it has been let through.
        available_.notify_one();
    }

    void wait() {
        MutexLock lock(mutex_);
        while (count_ == 0) lock.wait(available_);
        --count_;
    }

    /// False if `limit` passes first.
    [[nodiscard]] bool waitFor(std::chrono::nanoseconds limit) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        MutexLock lock(mutex_);
        while (count_ == 0)
            if (lock.waitUntil(available_, deadline) == std::cv_status::timeout && count_ == 0)
                return false;
        --count_;
        return true;
    }

  private:
    Mutex mutex_;
    std::condition_variable available_;
    std::size_t count_ SONRA_GUARDED_BY(mutex_);
};

}  // namespace sonra
