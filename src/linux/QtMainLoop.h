#pragma once

#include <deque>
#include <functional>
#include <memory>

#include "frame/Mutex.h"
#include "platform/MainLoop.h"

class QObject;

namespace sonra {

/// The main loop on a QCoreApplication, which must exist already and runs the events.
///
/// Declares its thread to be the main thread. Posted work runs one batch a turn of Qt's loop, so
/// that timers and descriptors get their turn between batches; a dialog's own loop inside posted
/// work goes on with the rest in order. Nothing wakes up while there is nothing to do. Timers are
/// precise to a millisecond and never early.
class QtMainLoop : public MainLoop {
  public:
    QtMainLoop();
    ~QtMainLoop() override;
    QtMainLoop(const QtMainLoop&) = delete;
    QtMainLoop& operator=(const QtMainLoop&) = delete;

    void post(std::function<void()> work) override;
    LoopHandle after(Duration delay, std::function<void()> work) override;
    LoopHandle every(Duration interval, std::function<void()> work) override;
    LoopHandle watch(int fd, Interest interest, std::function<void()> work) override;
    TimePoint now() const override { return Clock::now(); }

  private:
    class Receiver;
    class Timer;
    class Watch;

    void runPosted();
    [[nodiscard]] std::function<void()> next();
    [[nodiscard]] bool needsEvent() SONRA_REQUIRES(mutex_);
    LoopHandle arm(Duration delay, Duration interval, std::function<void()> work);

    std::unique_ptr<QObject> receiver_;  ///< gets the events, owns timers and watches
    Mutex mutex_;
    std::deque<std::function<void()>> posted_ SONRA_GUARDED_BY(mutex_);
    bool eventUnderWay_ SONRA_GUARDED_BY(mutex_) = false;
};

}  // namespace sonra
