#pragma once

#include <chrono>
#include <functional>
#include <utility>

namespace sonra {

/// A timer or watch of a MainLoop. It ends when the handle is cancelled or goes out of scope; a
/// callback that is already queued then finds itself cancelled and does not run. Movable, used on
/// the loop's thread only.
class LoopHandle {
  public:
    LoopHandle() = default;
    explicit LoopHandle(std::function<void()> onCancel) : onCancel_(std::move(onCancel)) {}
    LoopHandle(LoopHandle&& other) noexcept : onCancel_(std::exchange(other.onCancel_, nullptr)) {}
    LoopHandle& operator=(LoopHandle&& other) noexcept {
        if (this != &other) {
            cancel();
            onCancel_ = std::exchange(other.onCancel_, nullptr);
        }
        return *this;
    }
    LoopHandle(const LoopHandle&) = delete;
    LoopHandle& operator=(const LoopHandle&) = delete;
    ~LoopHandle() { cancel(); }

    void cancel() {
        if (auto run = std::exchange(onCancel_, nullptr)) run();
    }
    /// True while the handle stands for a timer or watch that was not cancelled. A one-shot timer
    /// that has fired still counts, until it is cancelled or replaced.
    explicit operator bool() const { return static_cast<bool>(onCancel_); }

  private:
    std::function<void()> onCancel_;
};

/// The main thread's event loop: posted work, timers and descriptor watches.
///
/// `post` may be called from any thread; posts run strictly first in, first out, and never inside
/// the caller. Everything else is for the main thread. A handle must not outlive its loop. Nothing
/// here fails: a watch on a bad descriptor never fires.
class MainLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using Duration = std::chrono::nanoseconds;
    using TimePoint = Clock::time_point;
    enum class Interest { readable, writable };

    virtual ~MainLoop() = default;

    virtual void post(std::function<void()> work) = 0;
    /// Runs `work` once, not before `delay` has passed.
    [[nodiscard]] virtual LoopHandle after(Duration delay, std::function<void()> work) = 0;
    /// Runs `work` every `interval`, first one interval from now. Missed firings are not made up
    /// for.
    [[nodiscard]] virtual LoopHandle every(Duration interval, std::function<void()> work) = 0;
    /// Runs `work` whenever `fd` is ready (level-triggered). The descriptor stays the caller's, and
    /// must stay open until the handle is cancelled.
    [[nodiscard]] virtual LoopHandle watch(int fd, Interest interest,
                                           std::function<void()> work) = 0;
    /// Monotonic time; seconds since an arbitrary start.
    [[nodiscard]] virtual TimePoint now() const = 0;
};

}  // namespace sonra
