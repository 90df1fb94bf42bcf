#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "frame/AudioChunk.h"

namespace sonra {

/// Decides whether a message is spoken, has it synthesised and sends each finished chunk to history
/// and playback.
///
/// Belongs to one thread at a time, the session's synthesis queue, and has no lock; the callbacks
/// run there. `ingest` blocks for as long as the synthesis takes. A message is dropped silently
/// when it was seen before, arrives muted or has too little to say; its id is remembered in any
/// case, so that it isn't spoken later either.
class NarrationPump {
  public:
    /// One finished sound file and the words in it; `wav` is its absolute path.
    using OnChunk = std::function<void(const std::string& text, const std::string& wav)>;
    /// Synthesises `text` and returns when that is done; calls `onChunk` once for each chunk, in
    /// order.
    using Synth = std::function<void(const std::string& text, const std::string& sessionId,
                                     const std::string& messageId, const OnChunk& onChunk)>;
    using ChunkCallback = std::function<void(const AudioChunk&)>;
    using SynthesisStartCallback =
        std::function<void(const std::string& sessionId, const std::string& messageId)>;
    struct NarrationSettings {
        bool muted = false;
        bool paused = false;  ///< holds playback only: a message that comes meanwhile is made ready
    };
    /// Asked once for each message.
    using Settings = std::function<NarrationSettings()>;

    /// `settings` may be empty: then the shared state document is read.
    NarrationPump(Synth synth, ChunkCallback recordLive, ChunkCallback enqueue, Settings settings);
    NarrationPump(const NarrationPump&) = delete;
    NarrationPump& operator=(const NarrationPump&) = delete;

    /// Told just before a synthesis begins. Set before the first `ingest`.
    void setOnSynthesisStart(SynthesisStartCallback callback) {
        onSynthesisStart_ = std::move(callback);
    }

    void ingest(const std::string& sessionId, const std::string& messageId, std::string_view text);

  private:
    bool rememberIfNew(const std::string& sessionId, const std::string& messageId);
    void narrate(const std::string& sessionId, const std::string& messageId,
                 const std::string& cleaned);

    const Synth synth_;
    const ChunkCallback recordLive_;
    const ChunkCallback enqueue_;
    const Settings settings_;
    SynthesisStartCallback onSynthesisStart_;
    std::unordered_set<std::string> narratedSet_;  ///< "session:message"
    std::deque<const std::string*> narratedIds_;   ///< the same, oldest first; the set owns them
};

}  // namespace sonra
