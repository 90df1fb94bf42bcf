#include "frame/SerialQueue.h"

#include <pthread.h>

#include <atomic>
#include <deque>
#include <future>
#include <map>
#include <thread>

#include "frame/Mutex.h"

namespace sonra {

using Clock = std::chrono::steady_clock;

/// Shared with the thread, which may outlive the queue object.
struct SerialQueue::State {
    struct Delayed {
        std::shared_ptr<bool> live;
        std::function<void()> work;
    };

    explicit State(std::string queueName) : name(std::move(queueName)) {}

    const std::string name;
    Mutex mutex;
    std::condition_variable wake;
    std::deque<std::function<void()>> work SONRA_GUARDED_BY(mutex);
    std::multimap<Clock::time_point, Delayed> delayed SONRA_GUARDED_BY(mutex);
    bool closing SONRA_GUARDED_BY(mutex) = false;
    std::atomic<std::thread::id> thread;

    void run();
    bool take(std::deque<std::function<void()>>& batch);
    void moveDueWork() SONRA_REQUIRES(mutex);
};

void SerialQueue::State::moveDueWork() {
    while (!delayed.empty() && delayed.begin()->first <= Clock::now()) {
        auto due = std::move(delayed.extract(delayed.begin()).mapped());
        work.emplace_back([due = std::move(due)] {
            if (*due.live) due.work();
        });
    }
}

/// Waits for work and takes all there is; false when the queue has closed and run dry.
bool SerialQueue::State::take(std::deque<std::function<void()>>& batch) {
    MutexLock lock(mutex);
    for (;;) {
        moveDueWork();
        if (!work.empty()) {
            batch.swap(work);
            return true;
        }
        if (closing) return false;
        if (delayed.empty()) {
            lock.wait(wake);
        } else {
            lock.waitUntil(wake, delayed.begin()->first);
        }
    }
}

void SerialQueue::State::run() {
    thread = std::this_thread::get_id();
    std::deque<std::function<void()>> batch;
    while (take(batch)) {
        for (auto& item : batch) {
            item();
            item = nullptr;
        }
        batch.clear();
    }
}

SerialQueue::SerialQueue(std::string name) : state_(std::make_shared<State>(std::move(name))) {
    std::thread thread([state = state_] { state->run(); });
    // Here and not there, so that whoever looks for a queue's thread knows it before it has begun.
    // The kernel keeps 15 characters.
    pthread_setname_np(thread.native_handle(), state_->name.substr(0, 15).c_str());
    thread.detach();
}

SerialQueue::~SerialQueue() {
    {
        MutexLock lock(state_->mutex);
        state_->closing = true;
    }
    state_->wake.notify_all();
}

const std::string& SerialQueue::name() const {
    return state_->name;
}

void SerialQueue::post(std::function<void()> work) {
    // The work may destroy the queue before this call is over.
    const auto state = state_;
    bool wasEmpty = false;
    {
        MutexLock lock(state->mutex);
        wasEmpty = state->work.empty();
        state->work.push_back(std::move(work));
    }
    if (wasEmpty) state->wake.notify_one();
}

void SerialQueue::sync(const std::function<void()>& work) {
    std::promise<void> done;
    post([&] {
        work();
        done.set_value();
    });
    done.get_future().wait();
}

bool SerialQueue::isCurrent() const {
    return state_->thread.load() == std::this_thread::get_id();
}

void SerialQueue::Timer::cancel() {
    if (const auto live = state_.lock()) *live = false;
    state_.reset();
}

SerialQueue::Timer SerialQueue::after(std::chrono::nanoseconds delay, std::function<void()> work) {
    auto live = std::make_shared<bool>(true);
    Timer timer;
    timer.state_ = live;
    const auto state = state_;
    {
        MutexLock lock(state->mutex);
        state->delayed.emplace(Clock::now() + delay,
                               State::Delayed{std::move(live), std::move(work)});
    }
    state->wake.notify_one();
    return timer;
}

}  // namespace sonra
