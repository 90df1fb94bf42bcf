#include "frame/LineBatcher.h"

#include <future>
#include <utility>

#include "frame/Mutex.h"
#include "frame/SerialQueue.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

// Long enough for hundreds of records at full speed, short against anything that a reader of the
// log notices.
constexpr auto gatheringTime = std::chrono::milliseconds(2);

}  // namespace

/// Posted work shares it, so that lines outlive the batcher.
struct LineBatcher::State : std::enable_shared_from_this<State> {
    State(std::string name, Consumer consumeBatch)
        : consume(std::move(consumeBatch)), queue(std::move(name)) {}

    const Consumer consume;
    Mutex mutex;
    std::condition_variable hurry;
    std::string pending SONRA_GUARDED_BY(mutex);
    std::size_t dropped SONRA_GUARDED_BY(mutex) = 0;
    bool scheduled SONRA_GUARDED_BY(mutex) = false;
    bool hurried SONRA_GUARDED_BY(mutex) = false;
    Clock::time_point gatherUntil;  ///< the queue's own
    SerialQueue queue;

    bool append(std::string_view line);
    void schedule();
    void handOver();
    void gather();
    bool hasMore();
    void stopGathering();
};

/// True if the queue has to be told.
bool LineBatcher::State::append(std::string_view line) {
    const std::size_t size = line.size() + 1;
    const MutexLock lock(mutex);
    if (!pending.empty() && pending.size() + size > maxPendingBytes) {
        ++dropped;
        return false;
    }
    pending.append(line).push_back('\n');
    return !std::exchange(scheduled, true);
}

void LineBatcher::State::schedule() {
    queue.post([self = shared_from_this()] {
        self->gather();
        self->handOver();
        if (self->hasMore()) self->schedule();
    });
}

/// Where a batch was handed over only just now, there is load: waits, so that the next one is worth
/// its cost.
void LineBatcher::State::gather() {
    MutexLock lock(mutex);
    while (!hurried && lock.waitUntil(hurry, gatherUntil) != std::cv_status::timeout) continue;
    hurried = false;
}

void LineBatcher::State::handOver() {
    std::string batch;
    std::size_t lost = 0;
    {
        const MutexLock lock(mutex);
        batch.swap(pending);
        lost = std::exchange(dropped, 0);
    }
    if (!batch.empty()) consume(batch, lost);
    gatherUntil = Clock::now() + gatheringTime;
}

/// False lets the next line tell the queue again.
bool LineBatcher::State::hasMore() {
    const MutexLock lock(mutex);
    scheduled = !pending.empty();
    return scheduled;
}

void LineBatcher::State::stopGathering() {
    {
        const MutexLock lock(mutex);
        hurried = scheduled;
    }
    hurry.notify_one();
}

LineBatcher::LineBatcher(std::string name, Consumer consumer)
    : state_(std::make_shared<State>(std::move(name), std::move(consumer))) {}

LineBatcher::~LineBatcher() {
    state_->stopGathering();
}

void LineBatcher::add(std::string_view line) {
    if (state_->append(line)) state_->schedule();
}

bool LineBatcher::flush(std::chrono::milliseconds limit) {
    const auto done = std::make_shared<std::promise<void>>();
    auto handedOver = done->get_future();
    state_->queue.post([state = state_, done] {
        state->handOver();
        done->set_value();
    });
    state_->stopGathering();
    return handedOver.wait_for(limit) == std::future_status::ready;
}

}  // namespace sonra
