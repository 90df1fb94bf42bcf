#include "linux/InotifyFileWatcher.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <system_error>
#include <unordered_map>
#include <vector>

#include "frame/FileProbe.h"
#include "frame/Log.h"
#include "frame/ThreadAffinity.h"
#include "linux/InotifyEvents.h"

namespace sonra {
namespace {

constexpr std::uint32_t writtenMask =
    IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_DELETE | IN_MOVED_TO | IN_MOVED_FROM;
constexpr std::uint32_t fileGoneMask = IN_DELETE_SELF | IN_IGNORED | IN_UNMOUNT;
// Opening and reading are left out: the owner of a watch reads the file, which must not wake it
// again.
constexpr std::uint32_t fileMask = writtenMask | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;

}  // namespace

/// One armed watch, shared by its handle, the table and a delivery under way.
struct InotifyFileWatcher::Target {
    const std::string path;
    const Callback onEvents;
    const FileIdentity identity;
    int wd = -1;
    FileEvents pending;
    bool live = true;

    void note(const InotifyEvent& event);
    void lookAgain();
    [[nodiscard]] bool hasPending() const {
        return pending.written || pending.renamed || pending.removed;
    }
};

/// An unlinked file that somebody still holds open sends nothing but a change of its attributes. (A
/// change of size always comes as a modification as well.)
void InotifyFileWatcher::Target::lookAgain() {
    const auto now = identify(path);
    if (!now) {
        pending.removed = true;
    } else if (*now != identity) {
        pending.renamed = true;
    }
}

void InotifyFileWatcher::Target::note(const InotifyEvent& event) {
    if ((event.mask & writtenMask) != 0) pending.written = true;
    if ((event.mask & IN_MOVE_SELF) != 0) pending.renamed = true;
    if ((event.mask & fileGoneMask) != 0) pending.removed = true;
    if ((event.mask & IN_ATTRIB) != 0 && !event.aboutEntry) lookAgain();
}

/// The descriptor and the table of what is armed on it. Lives on while one of its deliveries runs.
class InotifyFileWatcher::State {
  public:
    State() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (fd_ < 0) reportLimit(errno);
    }
    ~State() {
        if (fd_ >= 0) close(fd_);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    [[nodiscard]] int fd() const { return fd_; }
    std::shared_ptr<Target> arm(const std::string& path, Callback onEvents);
    void disarm(const std::shared_ptr<Target>& target);
    void silence();
    void deliverReadable();

  private:
    using Targets = std::vector<std::shared_ptr<Target>>;

    void reportLimit(int error);
    Targets collect(const std::vector<InotifyEvent>& events);
    void noteOverflow(Targets& due);
    void noteEvent(const InotifyEvent& event, Targets& due);

    const int fd_;
    bool limitReported_ = false;
    // The kernel has one watch for a file however often it is asked.
    std::unordered_map<int, Targets> byWd_;
};

void InotifyFileWatcher::State::reportLimit(int error) {
    if (std::exchange(limitReported_, true)) return;
    Log::shared()
        .child({{"class", "InotifyFileWatcher"}})
        .warn("no more file watches; changes are found by polling",
              std::system_error(error, std::generic_category()));
}

std::shared_ptr<InotifyFileWatcher::Target> InotifyFileWatcher::State::arm(const std::string& path,
                                                                           Callback onEvents) {
    // Looked at before it is watched: if another file takes the name in between, the watch is on
    // the new one and the first change of attributes reports a difference too many rather than one
    // too few.
    const auto identity = identify(path);
    if (!identity || fd_ < 0) return nullptr;
    const int wd = inotify_add_watch(fd_, path.c_str(), fileMask);
    if (wd < 0) {
        if (errno == ENOSPC) reportLimit(errno);
        return nullptr;
    }
    limitReported_ = false;
    auto target = std::make_shared<Target>(Target{path, std::move(onEvents), *identity, wd, {}});
    byWd_[wd].push_back(target);
    return target;
}

void InotifyFileWatcher::State::disarm(const std::shared_ptr<Target>& target) {
    const auto found = byWd_.find(target->wd);
    if (found == byWd_.end()) return;
    std::erase(found->second, target);
    if (!found->second.empty()) return;
    byWd_.erase(found);
    inotify_rm_watch(fd_, target->wd);
}

void InotifyFileWatcher::State::silence() {
    for (const auto& [wd, targets] : byWd_)
        for (const auto& target : targets) target->live = false;
}

void InotifyFileWatcher::State::noteOverflow(Targets& due) {
    for (const auto& [wd, targets] : byWd_) {
        for (const auto& target : targets) {
            if (!target->hasPending()) due.push_back(target);
            target->pending.renamed = true;
        }
    }
}

void InotifyFileWatcher::State::noteEvent(const InotifyEvent& event, Targets& due) {
    const auto found = byWd_.find(event.wd);
    if (found == byWd_.end()) return;
    for (const auto& target : found->second) {
        const bool isDue = target->hasPending();
        target->note(event);
        if (!isDue && target->hasPending()) due.push_back(target);
    }
    // The kernel has given this watch up, and its number with it.
    if ((event.mask & IN_IGNORED) != 0) byWd_.erase(found);
}

InotifyFileWatcher::State::Targets InotifyFileWatcher::State::collect(
    const std::vector<InotifyEvent>& events) {
    Targets due;
    for (const auto& event : events) {
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            noteOverflow(due);
        } else {
            noteEvent(event, due);
        }
    }
    return due;
}

/// One read a wake-up: a writer that never rests can't keep the loop here.
void InotifyFileWatcher::State::deliverReadable() {
    alignas(inotify_event) std::array<std::byte, 16384> buffer;
    const auto got = read(fd_, buffer.data(), buffer.size());
    if (got <= 0) return;
    const auto events = parseInotifyEvents(std::span(buffer).first(static_cast<std::size_t>(got)));
    for (const auto& target : collect(events)) {
        const auto pending = std::exchange(target->pending, {});
        if (target->live) target->onEvents(pending);
    }
}

class InotifyFileWatcher::Watch : public FileWatch {
  public:
    Watch(std::weak_ptr<State> state, std::shared_ptr<Target> target)
        : state_(std::move(state)), target_(std::move(target)) {}
    ~Watch() override {
        SONRA_ASSERT_MAIN_THREAD();
        target_->live = false;
        if (const auto state = state_.lock()) state->disarm(target_);
    }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

  private:
    const std::weak_ptr<State> state_;
    const std::shared_ptr<Target> target_;
};

InotifyFileWatcher::InotifyFileWatcher(MainLoop& loop) : state_(std::make_shared<State>()) {
    if (state_->fd() < 0) return;
    readable_ =
        loop.watch(state_->fd(), MainLoop::Interest::readable, [weak = std::weak_ptr(state_)] {
            if (const auto state = weak.lock()) state->deliverReadable();
        });
}

InotifyFileWatcher::~InotifyFileWatcher() {
    SONRA_ASSERT_MAIN_THREAD();
    readable_.cancel();
    state_->silence();
}

std::unique_ptr<FileWatch> InotifyFileWatcher::watch(const std::string& path, Callback onEvents) {
    SONRA_ASSERT_MAIN_THREAD();
    auto target = state_->arm(path, std::move(onEvents));
    if (!target) return nullptr;
    return std::make_unique<Watch>(state_, std::move(target));
}

}  // namespace sonra
