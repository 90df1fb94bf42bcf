#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "ingest/HistoryMessage.h"
#include "ingest/TailOffset.h"
#include "platform/MainLoop.h"

namespace sonra {

class FileWatcher;
class LiveTailReader;

/// Follows one session's transcript and hands every new message to a sink, each at most once.
///
/// A file watch gives it speed and a poll timer reliability; either one runs the same step,
/// `tickNow`. Main thread only. It holds the session's only cursor; loop, watcher and reader are
/// borrowed and outlive it. Callbacks run inside the step and must return at once; each of them may
/// stop or destroy the tailer, which ends the step there. Nothing here fails: a transcript that is
/// missing is looked for at every poll.
class SessionTailer {
  public:
    /// Where the transcript is now: asked at every step, since an agent may move to another file.
    using PathProvider = std::function<std::string()>;
    using Sink = std::function<void(const std::string& sessionId, HistoryMessage message)>;
    /// Told the cursor at the end of every step, changed or not.
    using OffsetPersist = std::function<void(const std::string& sessionId, TailOffset offset)>;

    static constexpr std::chrono::milliseconds defaultPollInterval{750};

    struct Options {
        std::string sessionId;
        std::optional<TailOffset> startOffset;  ///< absent: only what is written from now on
        PathProvider pathProvider;
        Sink sink;
        OffsetPersist offsetPersist;
        MainLoop::Duration pollInterval = defaultPollInterval;
    };

    SessionTailer(MainLoop& loop, FileWatcher& watcher, const LiveTailReader& reader,
                  Options options);
    ~SessionTailer();
    SessionTailer(const SessionTailer&) = delete;
    SessionTailer& operator=(const SessionTailer&) = delete;

    /// Chooses the cursor and begins to watch; delivers nothing by itself. May follow a `stop`.
    void start();
    void stop();
    /// One pass: reads what is new, delivers it, reports the cursor. Works on a tailer that isn't
    /// started, too.
    void tickNow();

    [[nodiscard]] TailOffset offset() const;
    [[nodiscard]] bool started() const;
    /// The path whose file watch is armed; absent while only the poll looks.
    [[nodiscard]] const std::optional<std::string>& watchedPath() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
};

}  // namespace sonra
