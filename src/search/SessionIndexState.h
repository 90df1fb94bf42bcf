#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "frame/Mutex.h"
#include "frame/SerialQueue.h"
#include "platform/TreeWatcher.h"
#include "search/Catalogue.h"
#include "search/SessionIndex.h"

namespace sonra {

/// What an index does, on the threads on which it does it. Shared with work under way, which holds
/// it weakly until it begins and ends early once it was released; after that neither the loop, nor
/// the pool, nor the watcher is touched any more.
class SessionIndex::State : public std::enable_shared_from_this<State> {
  public:
    State(MainLoop& loop, WorkerPool& workers, TreeWatcher& watcher, SessionIndexStore store);

    /// Main thread, once, at the end.
    void release();

    void bootstrap();
    void reconcile(std::optional<std::string> root, std::function<void()> completion);
    void startWatching(std::optional<std::string> root);
    void stopWatching();
    SessionSnapshot snapshot();
    std::optional<SessionMeta> lookup(const std::string& sessionId);
    ReconcileProgress progress();
    void applyTouched(std::vector<std::string> paths);
    LoopHandle addListener(Listener listener);

  private:
    using Listeners = std::vector<std::shared_ptr<Listener>>;

    void onPool(std::function<void(State&)> work);
    void requireOffQueue() const;

    // On one of the pool's threads:
    void runReconcile(const std::string& root, const std::function<void()>& completion);
    void catchUp(const std::string& root);
    bool bringUpToDate(const std::string& root);
    void summariseAll(const std::vector<std::string>& paths, std::uint64_t generation);
    void summariseOne(const std::string& path, std::uint64_t generation);
    void runTouched(const std::vector<std::string>& paths);
    bool refresh(const std::string& path);
    Catalogue::Moment now();
    Catalogue::Difference beginReconcile(const std::unordered_map<std::string, StatAttr>& walked,
                                         Catalogue::Moment walkBegan, std::uint64_t& generation);
    void endReconcile(std::uint64_t generation);
    void saveAndNotify();
    void notify(SessionSnapshot sessions);

    // On the queue:
    void openStream(const std::string& root);
    void handleEvents(TreeEvents events);
    void resolveRoot(std::vector<std::string>& paths) const;
    void enqueueTouched(std::vector<std::string> paths);
    void flushTouched();
    void closeStream();

    const SessionIndexStore store_;
    std::atomic<bool> released_ = false;

    // The world outside, gone once released.
    Mutex outside_;
    MainLoop* loop_ SONRA_GUARDED_BY(outside_);
    WorkerPool* workers_ SONRA_GUARDED_BY(outside_);
    TreeWatcher* watcher_ SONRA_GUARDED_BY(outside_);

    // What is saved and told last is the newest.
    Mutex saving_;

    // Held while somebody is told that a reconcile is over, who may use the index.
    Mutex completing_;

    // The main thread's. An element holds nothing once its handle went.
    const std::shared_ptr<Listeners> listeners_ = std::make_shared<Listeners>();

    // What is known. Never held while a disk is asked, as somebody types meanwhile.
    Mutex knowing_;
    Catalogue catalogue_ SONRA_GUARDED_BY(knowing_);
    ReconcileProgress progress_ SONRA_GUARDED_BY(knowing_);
    /// Of the newest reconcile, which alone reports its progress.
    std::uint64_t generation_ SONRA_GUARDED_BY(knowing_) = 0;

    // The queue's, which asks the disk.
    std::unique_ptr<TreeWatch> stream_;
    std::string watchedRoot_;  // links may lead to it
    std::set<std::string> pendingPaths_;
    SerialQueue::Timer coalesceWork_;

    SerialQueue queue_{"tts.search.index"};
};

}  // namespace sonra
