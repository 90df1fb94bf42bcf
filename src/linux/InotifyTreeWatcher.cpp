#include "linux/InotifyTreeWatcher.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

#include "frame/Log.h"
#include "frame/Mutex.h"
#include "frame/UniqueFd.h"
#include "linux/InotifyTree.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

/// A descriptor's watches; without a descriptor the limit is as good as reached.
class DescriptorWatches : public InotifyWatches {
  public:
    int add(const std::string& path, std::uint32_t mask) override {
        if (!fd_) return -EMFILE;
        const int wd = ::inotify_add_watch(fd_.get(), path.c_str(), mask);
        return wd < 0 ? -errno : wd;
    }
    void remove(int wd) override { ::inotify_rm_watch(fd_.get(), wd); }
    [[nodiscard]] int fd() const { return fd_.get(); }

  private:
    UniqueFd fd_{::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
};

void append(TreeEvents& all, TreeEvents more) {
    all.rescan |= more.rescan;
    all.paths.insert(all.paths.end(), std::make_move_iterator(more.paths.begin()),
                     std::make_move_iterator(more.paths.end()));
}

}  // namespace

/// What the thread works on; it lives as long as the thread does.
class InotifyTreeWatcher::Stream {
  public:
    Stream(const std::string& root, Callback onEvents, Times times)
        : times_(times), onEvents_(std::move(onEvents)), tree_(root, watches_) {}

    [[nodiscard]] bool isUsable() const { return static_cast<bool>(stop_); }
    void arm();
    void run();
    void end();

  private:
    /// Waits for events, for the end, or until `until`; false at the end.
    bool wait(bool forEvents, Clock::time_point until);
    TreeEvents readAll();
    void deliver(TreeEvents events);
    void reportLimit();

    const Times times_;
    const Callback onEvents_;
    const UniqueFd stop_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    DescriptorWatches watches_;
    InotifyTree tree_;
    bool limitReported_ = false;
    std::atomic<bool> stopped_ = false;
    std::atomic<std::thread::id> thread_;
    Mutex delivering_;
};

void InotifyTreeWatcher::Stream::reportLimit() {
    if (!tree_.isIncomplete() || std::exchange(limitReported_, true)) return;
    Log::shared()
        .child({{"class", "InotifyTreeWatcher"}})
        .warn("no more file watches; sessions are looked for every 30 s",
              std::system_error(ENOSPC, std::generic_category()));
}

void InotifyTreeWatcher::Stream::arm() {
    tree_.arm();
    reportLimit();
}

bool InotifyTreeWatcher::Stream::wait(bool forEvents, Clock::time_point until) {
    std::array<pollfd, 2> fds{pollfd{stop_.get(), POLLIN, 0},
                              pollfd{forEvents ? watches_.fd() : -1, POLLIN, 0}};
    int timeout = -1;
    if (until != Clock::time_point::max())
        timeout = static_cast<int>(std::max<std::int64_t>(
            0, std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count()));
    ::poll(fds.data(), fds.size(), timeout);
    return !stopped_;
}

/// What is there now and not what comes meanwhile: a writer that never rests can't keep it here.
TreeEvents InotifyTreeWatcher::Stream::readAll() {
    constexpr int mostReads = 64;
    TreeEvents events;
    alignas(inotify_event) std::array<std::byte, 65536> buffer;
    for (int i = 0; i < mostReads; ++i) {
        const auto got = ::read(watches_.fd(), buffer.data(), buffer.size());
        if (got <= 0) break;
        append(events, tree_.collect(std::span(buffer).first(static_cast<std::size_t>(got))));
    }
    return events;
}

void InotifyTreeWatcher::Stream::deliver(TreeEvents events) {
    if (!events.rescan && events.paths.empty()) return;
    MutexLock lock(delivering_);
    if (!stopped_) onEvents_(std::move(events));
}

void InotifyTreeWatcher::Stream::run() {
    ::pthread_setname_np(::pthread_self(), "sonra.tree");
    thread_ = std::this_thread::get_id();
    auto nextRescan = Clock::now() + times_.rescan;
    while (wait(true, tree_.isIncomplete() ? nextRescan : Clock::time_point::max())) {
        auto events = readAll();
        reportLimit();
        if (!tree_.isIncomplete()) nextRescan = Clock::now() + times_.rescan;
        if (Clock::now() >= nextRescan) {
            arm();
            events.rescan = true;
            nextRescan = Clock::now() + times_.rescan;
        }
        deliver(std::move(events));
        if (!wait(false, Clock::now() + times_.latency)) return;
    }
}

/// A callback that is running is waited for, unless it is this one.
void InotifyTreeWatcher::Stream::end() {
    stopped_ = true;
    ::eventfd_write(stop_.get(), 1);
    if (thread_.load() != std::this_thread::get_id()) MutexLock lock(delivering_);
}

class InotifyTreeWatcher::Watch : public TreeWatch {
  public:
    explicit Watch(std::shared_ptr<Stream> stream) : stream_(std::move(stream)) {}
    ~Watch() override { stream_->end(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    const std::shared_ptr<Stream> stream_;
};

InotifyTreeWatcher::InotifyTreeWatcher() : InotifyTreeWatcher(Times()) {}
InotifyTreeWatcher::InotifyTreeWatcher(Times times) : times_(times) {}

std::unique_ptr<TreeWatch> InotifyTreeWatcher::watch(const std::string& root, Callback onEvents) {
    auto stream = std::make_shared<Stream>(root, std::move(onEvents), times_);
    if (!stream->isUsable()) return nullptr;
    stream->arm();
    std::thread([stream] { stream->run(); }).detach();
    return std::make_unique<Watch>(std::move(stream));
}

}  // namespace sonra
