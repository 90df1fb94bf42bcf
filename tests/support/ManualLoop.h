#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/MainLoop.h"

namespace sonra::test {

/// A main loop whose clock the test moves by hand. Declares its thread to be the main thread.
///
/// Posts may come from any thread and run inside `runPosted`, `advance` or `runUntil`. Watches are
/// level-triggered only by `fire`; descriptors aren't looked at.
class ManualLoop : public MainLoop {
  public:
    ManualLoop();

    void post(std::function<void()> work) override;
    LoopHandle after(Duration delay, std::function<void()> work) override;
    LoopHandle every(Duration interval, std::function<void()> work) override;
    LoopHandle watch(int fd, Interest interest, std::function<void()> work) override;
    TimePoint now() const override { return now_; }

    /// Runs what has been posted, and what that posts.
    void runPosted();
    /// Moves the clock, firing each timer at its time, and runs everything that is posted
    /// meanwhile.
    void advance(Duration by);
    /// Runs posted work as it arrives from other threads until `done` holds; false after `limit` of
    /// real time.
    bool runUntil(const std::function<bool()>& done, Duration limit = std::chrono::seconds(20));
    /// Reports the watched descriptor as ready, once.
    void fire(int fd);
    /// Timers and watches that are armed now.
    std::size_t armedTimers() const { return timers_.size(); }
    std::size_t armedWatches() const { return watches_.size(); }

  private:
    struct Timer {
        TimePoint due;
        Duration interval;  ///< zero for a one-shot
        std::shared_ptr<std::function<void()>> work;
    };
    struct Watch {
        int fd;
        std::shared_ptr<std::function<void()>> work;
    };
    LoopHandle arm(Duration delay, Duration interval, std::function<void()> work);
    std::map<int, Timer>::iterator nextDue(TimePoint until);

    TimePoint now_{};
    int nextId_ = 1;
    std::map<int, Timer> timers_;
    std::map<int, Watch> watches_;
    std::mutex mutex_;
    std::deque<std::function<void()>> posted_;
};

}  // namespace sonra::test
