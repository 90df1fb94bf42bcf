#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "frame/AudioChunk.h"
#include "history/MessageRef.h"

namespace sonra {

/// Gives the audio of a message that is visited again.
///
/// Main thread only; what a request calls back is called there too, except `isCurrent`. A request
/// that isn't current any more emits nothing and doesn't call `onDone`; one that runs to its end
/// calls `onDone` exactly once, also when it found nothing.
class MessageChunkProvider {
  public:
    struct Request {
        MessageRef ref;
        int generation = 0;
        /// Whether the request of this generation still matters. Any thread.
        std::function<bool(int generation)> isCurrent;
        std::function<void(const AudioChunk&)> onChunk;
        std::function<void()> onDone;
    };

    virtual ~MessageChunkProvider() = default;

    /// The chunks that are at hand, or nothing.
    [[nodiscard]] virtual std::optional<std::vector<AudioChunk>> cachedChunks(
        const std::string& messageId) const = 0;
    virtual void resolveChunks(Request request) = 0;
};

}  // namespace sonra
