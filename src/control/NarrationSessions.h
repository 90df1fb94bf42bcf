#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "control/SessionRows.h"
#include "control/TailOffsetStore.h"
#include "frame/AudioChunk.h"
#include "frame/Log.h"
#include "frame/WorkerPool.h"
#include "ingest/HistoryMessage.h"
#include "ingest/NativeNarration.h"
#include "ingest/NativeNarrationSession.h"
#include "platform/FileWatcher.h"
#include "platform/MainLoop.h"

namespace sonra {

/// What a client or the automatic rule asks to be narrated. `source` empty means Claude Code;
/// `transcript` may be empty when it can be derived from `cwd`.
struct AttachRequest {
    std::string id = {};
    std::string cwd = {};
    std::string transcript = {};
    std::string source = {};
    std::string branch = {};
    std::string title = {};
};

enum class AttachOutcome {
    added,       ///< a row was added
    unchanged,   ///< there was a row
    refused,     ///< the request isn't valid
    notWritten,  ///< somebody else kept the document's lock; it may work another time
};

/// The sessions that are being narrated: their rows in the shared document, and the tailer of each.
///
/// Main thread only; owned by the coordinator, which gives it the voice and the queue as callbacks.
/// A request that isn't valid is a warning in the log and changes nothing. Writing rows takes the
/// document's lock, which can keep the caller waiting for as long as another holder keeps it, at
/// most ten seconds.
class NarrationSessions {
  public:
    struct Callbacks {
        NarrationPump::Synth synth;
        /// Each chunk goes to the history before it goes to the queue.
        std::function<void(const AudioChunk&)> recordLive;
        std::function<void(const AudioChunk&)> enqueue;
        std::function<void(const std::string& sessionId, const std::string& messageId)>
            onSynthesisStart;
        /// A row was added; its tailer hasn't started yet. The request is complete.
        std::function<void(const AttachRequest&)> onNewAttach;
        /// A row of an earlier run gets its tailer again; it hasn't started yet.
        std::function<void(const AttachRequest&)> onResume;
        std::function<void()> onDetach;       ///< a session was detached, here or elsewhere
        std::function<void()> onLastDetach;   ///< no session is attached any more
        std::function<double()> wallClockMs;  ///< milliseconds since the epoch
    };

    NarrationSessions(MainLoop& loop, FileWatcher& watcher, WorkerPool& pool, Callbacks callbacks);

    /// Adds the row and starts narrating from the end of the transcript; does nothing for a session
    /// that has a row.
    AttachOutcome attach(AttachRequest request);
    /// True if nothing speaks against an attach of it now.
    [[nodiscard]] static bool canServe(AttachRequest request);
    /// Starts narrating a session that has a row but no tailer, as after a restart, from the end of
    /// its transcript. False if it has no row.
    bool resume(const std::string& id);
    /// Removes the row and stops narrating. An unknown id changes nothing.
    void detach(const std::string& id);
    /// Takes in what the shared document says now: a tailer whose row has gone stops, and a row
    /// that has moved to another transcript takes its tailer along.
    void follow(const SessionRows& rows);

    [[nodiscard]] bool isNarrating(const std::string& id) const { return tailers_.contains(id); }
    /// True while any session has a tailer.
    [[nodiscard]] bool isNarrating() const { return !tailers_.empty(); }
    /// What is narrated under this id, with the transcript that its row names now; absent without a
    /// tailer.
    [[nodiscard]] std::optional<AttachRequest> narrated(const std::string& id) const;
    /// As the shared document had them when it was last looked at, with what was done here since.
    [[nodiscard]] const std::set<std::string>& attachedIds() const { return lastKnownAttachedIds_; }
    /// True once anybody has detached a session while this process lives.
    [[nodiscard]] bool userDetachedThisRun() const { return userDetachedThisRun_; }

  private:
    struct Tailer {
        AttachRequest request;
        std::unique_ptr<NativeNarrationSession> session;
    };
    struct Seed;

    static std::optional<std::string> problemWith(AttachRequest& request, Json& input);
    bool complete(AttachRequest& request) const;
    bool addRow(const AttachRequest& request, std::int64_t offset, bool& updated);
    [[nodiscard]] std::shared_ptr<Seed> findSeed(const AttachRequest& request,
                                                 const std::optional<TailOffset>& end);
    void primeLate(const std::string& id, const Seed& seed);
    static std::optional<TailOffset> endOf(const AttachRequest& request);
    /// Narrates what is written behind `from`. What `seed` finds is taken as though it had just
    /// been said; it may be null.
    void start(const AttachRequest& request, const std::optional<TailOffset>& from,
               const std::shared_ptr<Seed>& seed);
    NativeNarration::SessionOptions optionsFor(const AttachRequest& request);
    std::string transcriptPath(const std::string& id, const std::string& fallback) const;
    void stop(const std::string& id);
    void noteVanished(const std::set<std::string>& current);
    void noteAttached(const std::string& id);

    MainLoop& loop_;
    FileWatcher& watcher_;
    WorkerPool& pool_;
    Callbacks callbacks_;
    Log log_;
    TailOffsetStore offsets_;
    std::map<std::string, Tailer> tailers_;
    std::map<std::string, std::string> transcripts_;  ///< by id, as the rows have them
    std::set<std::string> lastKnownAttachedIds_;
    /// Attached though their rows couldn't be written, as on a full disk: nobody has detached them.
    std::set<std::string> withoutRow_;
    bool userDetachedThisRun_ = false;
    /// Expires with the sessions.
    const std::shared_ptr<NarrationSessions*> self_ = std::make_shared<NarrationSessions*>(this);
};

}  // namespace sonra
