#pragma once

#include "frame/Mutex.h"

struct pa_mainloop_api;
struct pa_threaded_mainloop;

namespace sonra {

/// libpulse's own thread, and the lock that guards everything it touches.
///
/// Every call into libpulse is made under a PulseLock; callbacks of libpulse run on its thread with
/// the lock already held, and say so with `assertHeld`. They are short, so the main thread never
/// waits long for the lock. The thread starts with the first `start` and sleeps as long as nothing
/// happens on the connection.
class SONRA_TSA(capability("mutex")) PulseLoop {
  public:
    PulseLoop();
    ~PulseLoop();
    PulseLoop(const PulseLoop&) = delete;
    PulseLoop& operator=(const PulseLoop&) = delete;

    /// False if the system has no room for another thread. Not from a callback.
    [[nodiscard]] bool start();

    void lock() SONRA_TSA(acquire_capability());
    void unlock() SONRA_TSA(release_capability());
    /// Gives the lock up until somebody wakes the loop's waiters.
    void wait() SONRA_REQUIRES(this);
    void wakeWaiters();
    /// For callbacks of libpulse: the lock is held by whoever called.
    void assertHeld() const SONRA_TSA(assert_capability(this)) {}

    pa_mainloop_api* api() const SONRA_REQUIRES(this);

  private:
    pa_threaded_mainloop* const loop_;
    bool started_ = false;
};

class SONRA_TSA(scoped_lockable) PulseLock {
  public:
    explicit PulseLock(PulseLoop& loop) SONRA_TSA(acquire_capability(loop)) : loop_(loop) {
        loop_.lock();
    }
    ~PulseLock() SONRA_TSA(release_capability()) { loop_.unlock(); }
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

  private:
    PulseLoop& loop_;
};

}  // namespace sonra
