#include "support/ManualLoop.h"

#include <thread>

#include "frame/ThreadAffinity.h"

namespace sonra::test {

ManualLoop::ManualLoop() {
    declareMainThread();
}

void ManualLoop::post(std::function<void()> work) {
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
}

LoopHandle ManualLoop::arm(Duration delay, Duration interval, std::function<void()> work) {
    const int id = nextId_++;
    timers_[id] = {now_ + delay, interval,
                   std::make_shared<std::function<void()>>(std::move(work))};
    return LoopHandle([this, id] { timers_.erase(id); });
}

LoopHandle ManualLoop::after(Duration delay, std::function<void()> work) {
    return arm(delay, Duration::zero(), std::move(work));
}

LoopHandle ManualLoop::every(Duration interval, std::function<void()> work) {
    return arm(interval, interval, std::move(work));
}

LoopHandle ManualLoop::watch(int fd, Interest /*interest*/, std::function<void()> work) {
    const int id = nextId_++;
    watches_[id] = {fd, std::make_shared<std::function<void()>>(std::move(work))};
    return LoopHandle([this, id] { watches_.erase(id); });
}

void ManualLoop::runPosted() {
    for (;;) {
        std::function<void()> work;
        {
            const std::lock_guard lock(mutex_);
            if (posted_.empty()) return;
            work = std::move(posted_.front());
            posted_.pop_front();
        }
        work();
    }
}

std::map<int, ManualLoop::Timer>::iterator ManualLoop::nextDue(TimePoint until) {
    auto next = timers_.end();
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
        if (it->second.due <= until && (next == timers_.end() || it->second.due < next->second.due))
            next = it;
    }
    return next;
}

void ManualLoop::advance(Duration by) {
    const TimePoint until = now_ + by;
    runPosted();
    for (auto it = nextDue(until); it != timers_.end(); it = nextDue(until)) {
        now_ = std::max(now_, it->second.due);
        const auto work = it->second.work;
        if (it->second.interval == Duration::zero()) {
            timers_.erase(it);
        } else {
            it->second.due += it->second.interval;
        }
        (*work)();
        runPosted();
    }
    now_ = until;
}

bool ManualLoop::runUntil(const std::function<bool()>& done, Duration limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        runPosted();
        if (done()) return true;
        if (Clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void ManualLoop::fire(int fd) {
    std::vector<std::shared_ptr<std::function<void()>>> ready;
    for (const auto& [id, watch] : watches_)
        if (watch.fd == fd) ready.push_back(watch.work);
    for (const auto& work : ready) (*work)();
}

}  // namespace sonra::test
