#include "search/SessionIndexState.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "frame/FileProbe.h"
#include "frame/ThreadAffinity.h"
#include "frame/WorkerPool.h"
#include "search/Summarizer.h"

namespace sonra {
namespace {

constexpr std::size_t maxSummarisers = 8;
constexpr std::size_t filesWorthAThread = 16;
constexpr auto quietBeforeFlush = std::chrono::milliseconds(500);

std::string rootOf(const std::optional<std::string>& root) {
    return SessionIndex::canonicalize(root ? *root : SessionIndex::defaultProjectsRoot());
}

/// With its links: each of them may be pointed elsewhere while the tree is watched.
std::string linkedRoot(const std::optional<std::string>& root) {
    const auto named = root ? *root : SessionIndex::defaultProjectsRoot();
    std::error_code error;
    const auto path = std::filesystem::absolute(named, error);
    return error ? named : path.string();
}

Catalogue::Entry entryOf(const SessionRecord& record) {
    return std::make_shared<const SessionMeta>(record.toMeta());
}

Catalogue::Entry summarised(const std::string& path) {
    const auto record = Summarizer::summarize(path);
    return record ? entryOf(*record) : nullptr;
}

std::size_t summarisersFor(std::size_t files) {
    const std::size_t cores = std::max(1U, std::thread::hardware_concurrency());
    return std::min({maxSummarisers, cores, files / filesWorthAThread + 1});
}

}  // namespace

SessionIndex::State::State(MainLoop& loop, WorkerPool& workers, TreeWatcher& watcher,
                           SessionIndexStore store)
    : store_(std::move(store)), loop_(&loop), workers_(&workers), watcher_(&watcher) {}

void SessionIndex::State::release() {
    released_ = true;
    {
        MutexLock lock(outside_);
        loop_ = nullptr;
        workers_ = nullptr;
        watcher_ = nullptr;
    }
    // A completion that is being called has begun before; none begins afterwards.
    { MutexLock lock(completing_); }
    for (const auto& slot : *listeners_) *slot = nullptr;
    requireOffQueue();
    queue_.sync([this] { closeStream(); });
}

/// The queue may stand for long and waits for nobody else: in every build.
void SessionIndex::State::requireOffQueue() const {
    if (queue_.isCurrent()) threadAffinityBroken("off the index's queue", __FILE__, __LINE__);
}

void SessionIndex::State::onPool(std::function<void(State&)> work) {
    MutexLock lock(outside_);
    if (workers_ == nullptr) return;
    workers_->post([weak = weak_from_this(), work = std::move(work)] {
        const auto self = weak.lock();
        if (self && !self->released_) work(*self);
    });
}

void SessionIndex::State::bootstrap() {
    requireOffQueue();
    Catalogue loaded;
    if (const auto file = store_.load())
        for (const auto& record : file->sessions) loaded.publish(entryOf(record));
    {
        MutexLock lock(knowing_);
        catalogue_ = std::move(loaded);
    }
    onPool([](State& self) { self.snapshot().prepare(); });
}

SessionSnapshot SessionIndex::State::snapshot() {
    requireOffQueue();
    MutexLock lock(knowing_);
    return catalogue_.snapshot();
}

std::optional<SessionMeta> SessionIndex::State::lookup(const std::string& sessionId) {
    requireOffQueue();
    MutexLock lock(knowing_);
    const auto entry = catalogue_.withId(sessionId);
    return entry ? std::optional(*entry) : std::nullopt;
}

ReconcileProgress SessionIndex::State::progress() {
    requireOffQueue();
    MutexLock lock(knowing_);
    return progress_;
}

LoopHandle SessionIndex::State::addListener(Listener listener) {
    std::erase_if(*listeners_, [](const auto& slot) { return !*slot; });
    auto slot = std::make_shared<Listener>(std::move(listener));
    listeners_->push_back(slot);
    return LoopHandle([slot] { *slot = nullptr; });
}

void SessionIndex::State::reconcile(std::optional<std::string> root,
                                    std::function<void()> completion) {
    onPool([root = std::move(root), completion = std::move(completion)](State& self) {
        self.runReconcile(rootOf(root), completion);
    });
}

void SessionIndex::State::runReconcile(const std::string& root,
                                       const std::function<void()>& completion) {
    bringUpToDate(root);
    if (released_) return;
    saveAndNotify();
    if (!completion) return;
    MutexLock lock(completing_);
    if (!released_) completion();
}

/// What happened after the last walk and before the watch began was told by neither.
void SessionIndex::State::catchUp(const std::string& root) {
    if (bringUpToDate(root) && !released_) saveAndNotify();
}

/// False if nothing had changed.
bool SessionIndex::State::bringUpToDate(const std::string& root) {
    const auto walkBegan = now();
    const auto walked = statWalk(root);
    std::uint64_t generation = 0;
    const auto difference = beginReconcile(walked, walkBegan, generation);
    if (difference.toRead.empty()) return difference.hasLost;
    summariseAll(difference.toRead, generation);
    endReconcile(generation);
    return true;
}

Catalogue::Moment SessionIndex::State::now() {
    MutexLock lock(knowing_);
    return catalogue_.now();
}

Catalogue::Difference SessionIndex::State::beginReconcile(
    const std::unordered_map<std::string, StatAttr>& walked, Catalogue::Moment walkBegan,
    std::uint64_t& generation) {
    MutexLock lock(knowing_);
    auto difference = catalogue_.adopt(walked, walkBegan);
    generation = ++generation_;
    progress_ = {static_cast<int>(difference.toRead.size()), 0, !difference.toRead.empty()};
    return difference;
}

void SessionIndex::State::endReconcile(std::uint64_t generation) {
    MutexLock lock(knowing_);
    if (generation == generation_) progress_.inFlight = false;
}

void SessionIndex::State::summariseAll(const std::vector<std::string>& paths,
                                       std::uint64_t generation) {
    std::atomic<std::size_t> next = 0;
    const auto work = [&] {
        for (auto i = next++; i < paths.size() && !released_; i = next++)
            summariseOne(paths[i], generation);
    };
    std::vector<std::jthread> others;
    for (std::size_t i = 1; i < summarisersFor(paths.size()); ++i) others.emplace_back(work);
    work();
}

void SessionIndex::State::summariseOne(const std::string& path, std::uint64_t generation) {
    const auto entry = summarised(path);
    MutexLock lock(knowing_);
    if (entry) catalogue_.publish(entry);
    if (generation == generation_) ++progress_.done;
}

void SessionIndex::State::applyTouched(std::vector<std::string> paths) {
    if (paths.empty()) return;
    onPool([paths = std::move(paths)](State& self) { self.runTouched(paths); });
}

void SessionIndex::State::runTouched(const std::vector<std::string>& paths) {
    bool changed = false;
    for (const auto& path : paths) {
        if (released_) return;
        changed |= refresh(path);
    }
    if (changed) saveAndNotify();
}

bool SessionIndex::State::refresh(const std::string& path) {
    if (!fileExists(path)) {
        MutexLock lock(knowing_);
        catalogue_.remove(path);
        return true;
    }
    const auto entry = summarised(path);
    if (!entry) return false;
    MutexLock lock(knowing_);
    catalogue_.publish(entry);
    return true;
}

/// Under one lock, so that neither the file nor a listener ends on an older catalogue.
void SessionIndex::State::saveAndNotify() {
    MutexLock lock(saving_);
    const auto sessions = snapshot();
    sessions.prepare();
    IndexFile file;
    file.sessions.reserve(sessions.size());
    for (const auto& meta : sessions) file.sessions.push_back(SessionRecord::from(meta));
    try {
        store_.save(file);
    } catch (const SessionIndexStoreError&) {
        // The next reconcile writes it again.
    }
    notify(sessions);
}

/// A listener may end itself or others, or release the index.
void SessionIndex::State::notify(SessionSnapshot sessions) {
    MutexLock lock(outside_);
    if (loop_ == nullptr) return;
    loop_->post([weak = std::weak_ptr(listeners_), sessions = std::move(sessions)] {
        const auto listeners = weak.lock();
        if (!listeners) return;
        for (const auto& slot : Listeners(*listeners))
            if (const auto listener = *slot) listener(sessions);
    });
}

void SessionIndex::State::startWatching(std::optional<std::string> root) {
    queue_.post([weak = weak_from_this(), root = std::move(root)] {
        const auto self = weak.lock();
        if (!self || self->stream_) return;
        self->openStream(linkedRoot(root));
        if (!self->stream_) return;
        self->onPool(
            [watched = self->watchedRoot_](State& state) { state.catchUp(rootOf(watched)); });
    });
}

void SessionIndex::State::openStream(const std::string& root) {
    SONRA_ASSERT_ON(queue_);
    MutexLock lock(outside_);
    if (watcher_ == nullptr) return;
    watchedRoot_ = root;
    stream_ = watcher_->watch(root, [weak = weak_from_this()](TreeEvents events) {
        const auto self = weak.lock();
        if (!self) return;
        self->queue_.post([weak, events = std::move(events)]() mutable {
            if (const auto still = weak.lock()) still->handleEvents(std::move(events));
        });
    });
    if (!stream_) std::fputs("[session-index] FSEventStreamCreate failed\n", stderr);
}

void SessionIndex::State::handleEvents(TreeEvents events) {
    SONRA_ASSERT_ON(queue_);
    if (!stream_) return;
    if (events.rescan) {
        pendingPaths_.clear();
        coalesceWork_.cancel();
        reconcile(watchedRoot_, nullptr);
        return;
    }
    std::erase_if(events.paths, [](const auto& path) { return !path.ends_with(".jsonl"); });
    resolveRoot(events.paths);
    enqueueTouched(std::move(events.paths));
}

/// The watch tells of files below the root as it was named, a reconcile finds their real paths.
void SessionIndex::State::resolveRoot(std::vector<std::string>& paths) const {
    const auto root = canonicalize(watchedRoot_);
    if (root == watchedRoot_) return;
    for (auto& path : paths)
        if (path.starts_with(watchedRoot_ + "/")) path.replace(0, watchedRoot_.size(), root);
}

void SessionIndex::State::enqueueTouched(std::vector<std::string> paths) {
    SONRA_ASSERT_ON(queue_);
    pendingPaths_.insert(std::make_move_iterator(paths.begin()),
                         std::make_move_iterator(paths.end()));
    coalesceWork_.cancel();
    coalesceWork_ = queue_.after(quietBeforeFlush, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->flushTouched();
    });
}

void SessionIndex::State::flushTouched() {
    SONRA_ASSERT_ON(queue_);
    const auto paths = std::exchange(pendingPaths_, {});
    if (!paths.empty()) applyTouched({paths.begin(), paths.end()});
}

void SessionIndex::State::stopWatching() {
    queue_.post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->closeStream();
    });
}

void SessionIndex::State::closeStream() {
    SONRA_ASSERT_ON(queue_);
    coalesceWork_.cancel();
    pendingPaths_.clear();
    stream_.reset();
}

}  // namespace sonra
