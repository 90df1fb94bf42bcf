#pragma once

#include <memory>
#include <string>

#include "frame/SerialQueue.h"
#include "ingest/NarrationPump.h"
#include "ingest/SessionTailer.h"

namespace sonra {

/// The narration of one attached session: its tailer, its pump and the queue on which it is
/// synthesised.
///
/// Main thread only; made by NativeNarration::makeSession. Messages are synthesised one after the
/// other, in the order in which they came. Neither `stop` nor destruction waits for that: work
/// already on the queue runs to its end and delivers its chunks. It shares the pump, so nothing it
/// touches has gone.
class NativeNarrationSession {
  public:
    /// The sink in `tailing` is replaced by the session's own. Without `dispatchToMain` messages
    /// are ingested inline, on the caller's thread.
    NativeNarrationSession(MainLoop& loop, FileWatcher& watcher, const LiveTailReader& reader,
                           std::shared_ptr<NarrationPump> pump, SessionTailer::Options tailing,
                           bool dispatchToMain);

    void start();
    void stop();
    /// Takes a message as though the tailer had delivered it; when it comes live, it isn't spoken
    /// again.
    void prime(const std::string& messageId, const std::string& text);

    [[nodiscard]] const std::string& sessionId() const;
    [[nodiscard]] const SerialQueue& synthQueue() const;
    [[nodiscard]] const SessionTailer& tailer() const { return tailer_; }

  private:
    class Intake;
    static SessionTailer::Options feeding(std::shared_ptr<Intake> intake,
                                          SessionTailer::Options tailing);

    // Shared with the tailer's sink, inside which the session may be destroyed.
    std::shared_ptr<Intake> intake_;
    SessionTailer tailer_;
};

}  // namespace sonra
