#include "frame/WorkerPool.h"

#include <pthread.h>

#include <deque>
#include <thread>

#include "frame/Mutex.h"

namespace sonra {

struct WorkerPool::State {
    explicit State(std::size_t limit) : maxThreads(limit) {}

    const std::size_t maxThreads;
    Mutex mutex;
    std::condition_variable wake;
    std::condition_variable idle;
    std::deque<std::function<void()>> work SONRA_GUARDED_BY(mutex);
    std::size_t threads SONRA_GUARDED_BY(mutex) = 0;
    std::size_t waiting SONRA_GUARDED_BY(mutex) = 0;
    bool closing SONRA_GUARDED_BY(mutex) = false;

    void run();
    std::function<void()> take();
};

/// The next piece of work, or nothing when the pool has closed and run dry.
std::function<void()> WorkerPool::State::take() {
    MutexLock lock(mutex);
    ++waiting;
    idle.notify_all();
    while (work.empty() && !closing) lock.wait(wake);
    --waiting;
    if (work.empty()) return nullptr;
    auto item = std::move(work.front());
    work.pop_front();
    return item;
}

void WorkerPool::State::run() {
    pthread_setname_np(pthread_self(), "sonra.worker");
    while (auto item = take()) item();
}

WorkerPool::WorkerPool(std::size_t maxThreads) : state_(std::make_shared<State>(maxThreads)) {}

WorkerPool::~WorkerPool() {
    {
        MutexLock lock(state_->mutex);
        state_->closing = true;
    }
    state_->wake.notify_all();
}

void WorkerPool::post(std::function<void()> work) {
    // The work may destroy the pool before this call is over.
    const auto state = state_;
    bool grow = false;
    {
        MutexLock lock(state->mutex);
        state->work.push_back(std::move(work));
        grow = state->work.size() > state->waiting && state->threads < state->maxThreads;
        if (grow) ++state->threads;
    }
    if (grow) std::thread([state] { state->run(); }).detach();
    state->wake.notify_one();
}

void WorkerPool::drain() {
    MutexLock lock(state_->mutex);
    while (!state_->work.empty() || state_->waiting < state_->threads) lock.wait(state_->idle);
}

}  // namespace sonra
