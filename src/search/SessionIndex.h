#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/MainLoop.h"
#include "search/SessionIndexStore.h"
#include "search/SessionSnapshot.h"

namespace sonra {

class TreeWatcher;
class WorkerPool;

/// How far the running reconcile is.
struct ReconcileProgress {
    int total = 0;  ///< files that it must summarise
    int done = 0;
    bool inFlight = false;

    bool operator==(const ReconcileProgress&) const = default;
};

/// The catalogue of all transcripts below the agent's projects directory, in memory, so that
/// nothing touches the transcripts while somebody types.
///
/// Made, observed and destroyed on the main thread; everything else may be called from any thread
/// but the index's own queue, which watches the tree. The readers wait neither for it nor for a
/// disk: the catalogue lies behind a lock that is held for moments. Summaries and the
/// cache are written by the pool's threads, which hold the index weakly: they end by themselves
/// when it goes. What can't be read is left out, what can't be saved is rebuilt by the next
/// reconcile.
class SessionIndex {
  public:
    using Listener = std::function<void(const SessionSnapshot& sessions)>;

    /// The ports and the pool must outlive the index.
    SessionIndex(MainLoop& loop, WorkerPool& workers, TreeWatcher& watcher,
                 SessionIndexStore store = SessionIndexStore());
    ~SessionIndex();
    SessionIndex(const SessionIndex&) = delete;
    SessionIndex& operator=(const SessionIndex&) = delete;

    /// Fills the catalogue from the cache before it returns.
    void bootstrap();
    /// Returns at once; brings the catalogue up to date with the tree. `completion` is called on
    /// one of the pool's threads, and not at all if the index goes before: its end waits for one
    /// that has begun.
    void reconcile(std::optional<std::string> projectsRoot, std::function<void()> completion);
    /// Both return at once. Watching twice is watching once. Once the watch runs, the tree is
    /// looked at again for what happened before it did; that is told only if there is something.
    void startWatching(std::optional<std::string> projectsRoot);
    void stopWatching();

    /// Newest first; of equal times, by path.
    [[nodiscard]] SessionSnapshot snapshot() const;
    [[nodiscard]] std::optional<SessionMeta> lookup(const std::string& sessionId) const;
    [[nodiscard]] ReconcileProgress reconcileProgress() const;

    /// Returns at once; looks at these transcripts again.
    void applyTouched(std::vector<std::string> paths);

    /// The notification "tts.sessions.changed": `listener` runs on the main loop with the catalogue
    /// as it is after each change, until the handle goes.
    [[nodiscard]] LoopHandle ttsSessionsChanged(Listener listener);

    static std::string defaultProjectsRoot();
    /// The path without links and dots; as it is if that fails.
    static std::string canonicalize(const std::string& path);

  private:
    class State;

    std::shared_ptr<State> state_;
};

}  // namespace sonra
