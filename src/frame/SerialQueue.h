#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace sonra {

/// One named thread that runs posted work in order.
///
/// Any thread may post. Destroying the queue lets the work that was posted before finish on its
/// thread without waiting for it; work posted by that work still runs. Work must not throw.
class SerialQueue {
  public:
    explicit SerialQueue(std::string name);
    ~SerialQueue();
    SerialQueue(const SerialQueue&) = delete;
    SerialQueue& operator=(const SerialQueue&) = delete;

    [[nodiscard]] const std::string& name() const;

    void post(std::function<void()> work);
    /// Runs `work` on the queue and waits for it. Not from the queue itself.
    void sync(const std::function<void()>& work);
    /// True on the queue's own thread.
    [[nodiscard]] bool isCurrent() const;

    /// A one-shot timer whose work runs on the queue. Cancelling from the queue is final; from
    /// elsewhere the work may already be under way. Dropping the handle doesn't cancel.
    class Timer {
      public:
        Timer() = default;
        void cancel();
        explicit operator bool() const { return !state_.expired(); }

      private:
        friend class SerialQueue;
        std::weak_ptr<bool> state_;
    };
    Timer after(std::chrono::nanoseconds delay, std::function<void()> work);

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
