#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ingest/NarrationPump.h"
#include "ingest/NativeNarrationSession.h"
#include "ingest/SessionTailer.h"

/// Joins the parts of a session's narration.
namespace sonra::NativeNarration {

/// What a session is made of. `settings` and `onSynthesisStart` may be empty.
struct SessionOptions {
    std::string sessionId;
    std::optional<TailOffset> startOffset;  ///< absent: only what is written from now on
    SessionTailer::PathProvider pathProvider;
    NarrationPump::Synth synth;  ///< runs on the session's queue, and may block it
    NarrationPump::ChunkCallback recordLive;
    NarrationPump::ChunkCallback enqueue;
    SessionTailer::OffsetPersist offsetPersist;  ///< always on the main thread
    NarrationPump::Settings settings;            ///< runs on the session's queue
    NarrationPump::SynthesisStartCallback onSynthesisStart;
    /// True: `recordLive`, `enqueue` and `onSynthesisStart` are posted to the main thread. False:
    /// everything runs inline on the caller, which makes the path deterministic.
    bool dispatchToMain = true;
};

/// Main thread. The loop outlives the session and the synthesis that it may leave under way;
/// watcher and reader outlive the session.
std::unique_ptr<NativeNarrationSession> makeSession(MainLoop& loop, FileWatcher& watcher,
                                                    const LiveTailReader& reader,
                                                    SessionOptions options);

}  // namespace sonra::NativeNarration
