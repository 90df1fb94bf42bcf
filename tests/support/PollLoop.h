#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>

#include "platform/MainLoop.h"

namespace sonra::test {

/// A real main loop over poll(2), for tests of adapters that need no Qt. Declares its thread to be
/// the main thread.
class PollLoop : public MainLoop {
  public:
    PollLoop();
    ~PollLoop() override;
    PollLoop(const PollLoop&) = delete;
    PollLoop& operator=(const PollLoop&) = delete;

    void post(std::function<void()> work) override;
    LoopHandle after(Duration delay, std::function<void()> work) override;
    LoopHandle every(Duration interval, std::function<void()> work) override;
    LoopHandle watch(int fd, Interest interest, std::function<void()> work) override;
    TimePoint now() const override { return Clock::now(); }

    /// Runs the loop until `done` holds, looking after each event; false when `limit` passes first.
    bool runUntil(const std::function<bool()>& done, Duration limit = std::chrono::seconds(20));

  private:
    struct Timer {
        TimePoint due;
        Duration interval;
        std::shared_ptr<std::function<void()>> work;
    };
    struct Watch {
        int fd;
        Interest interest;
        std::shared_ptr<std::function<void()>> work;
    };
    LoopHandle arm(Duration delay, Duration interval, std::function<void()> work);
    void runPosted();
    void runTimers();
    void pollOnce(Duration atMost);

    int wakeFd_;
    int nextId_ = 1;
    std::map<int, Timer> timers_;
    std::map<int, Watch> watches_;
    std::mutex mutex_;
    std::deque<std::function<void()>> posted_;
};

}  // namespace sonra::test
