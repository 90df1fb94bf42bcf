#include "support/PollLoop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <vector>

#include "frame/ThreadAffinity.h"

namespace sonra::test {

PollLoop::PollLoop() : wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    declareMainThread();
}

PollLoop::~PollLoop() {
    close(wakeFd_);
}

void PollLoop::post(std::function<void()> work) {
    const std::uint64_t one = 1;
    // To the end: once the work has run, the loop and its descriptor may go.
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
    [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);
}

LoopHandle PollLoop::arm(Duration delay, Duration interval, std::function<void()> work) {
    const int id = nextId_++;
    timers_[id] = {now() + delay, interval,
                   std::make_shared<std::function<void()>>(std::move(work))};
    return LoopHandle([this, id] { timers_.erase(id); });
}

LoopHandle PollLoop::after(Duration delay, std::function<void()> work) {
    return arm(delay, Duration::zero(), std::move(work));
}

LoopHandle PollLoop::every(Duration interval, std::function<void()> work) {
    return arm(interval, interval, std::move(work));
}

LoopHandle PollLoop::watch(int fd, Interest interest, std::function<void()> work) {
    const int id = nextId_++;
    watches_[id] = {fd, interest, std::make_shared<std::function<void()>>(std::move(work))};
    return LoopHandle([this, id] { watches_.erase(id); });
}

void PollLoop::runPosted() {
    std::deque<std::function<void()>> batch;
    {
        const std::lock_guard lock(mutex_);
        batch.swap(posted_);
    }
    for (auto& work : batch) work();
}

void PollLoop::runTimers() {
    std::vector<int> due;
    for (const auto& [id, timer] : timers_)
        if (timer.due <= now()) due.push_back(id);
    for (const int id : due) {
        const auto it = timers_.find(id);
        if (it == timers_.end()) continue;
        const auto work = it->second.work;
        if (it->second.interval == Duration::zero()) {
            timers_.erase(it);
        } else {
            it->second.due = now() + it->second.interval;
        }
        (*work)();
    }
}

void PollLoop::pollOnce(Duration atMost) {
    std::vector<pollfd> fds{{wakeFd_, POLLIN, 0}};
    std::vector<int> ids{0};
    for (const auto& [id, watch] : watches_) {
        fds.push_back({watch.fd,
                       static_cast<short>(watch.interest == Interest::readable ? POLLIN : POLLOUT),
                       0});
        ids.push_back(id);
    }
    for (const auto& [id, timer] : timers_) atMost = std::min<Duration>(atMost, timer.due - now());
    const auto wait =
        std::chrono::ceil<std::chrono::milliseconds>(std::max(atMost, Duration::zero()));
    if (poll(fds.data(), fds.size(), static_cast<int>(wait.count())) <= 0) return;
    std::uint64_t count = 0;
    if (fds[0].revents != 0) [[maybe_unused]]
        const auto got = read(wakeFd_, &count, sizeof count);
    for (std::size_t i = 1; i < fds.size(); ++i) {
        const auto it = watches_.find(ids[i]);
        if (fds[i].revents == 0 || it == watches_.end()) continue;
        const auto work = it->second.work;
        (*work)();
    }
}

bool PollLoop::runUntil(const std::function<bool()>& done, Duration limit) {
    const auto deadline = now() + limit;
    for (;;) {
        runPosted();
        runTimers();
        if (done()) return true;
        if (now() > deadline) return false;
        pollOnce(std::chrono::milliseconds(20));
    }
}

}  // namespace sonra::test
