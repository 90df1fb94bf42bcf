#pragma once

#include <variant>
#include <vector>

#include "frame/AudioChunk.h"
#include "history/MessageRef.h"

namespace sonra {

/// What a transport button comes to: decided by the history, carried out by whoever owns the audio
/// queue. A value.
struct SkipOutcome {
    /// Play these instead of what is queued, from `startIndex` on; nothing if there are none.
    struct ReplaceQueue {
        std::vector<AudioChunk> chunks;
        int startIndex = 0;
        bool operator==(const ReplaceQueue&) const = default;
    };
    /// Play this message: from its chunks if there are any, else newly spoken.
    struct Resolve {
        MessageRef ref;
        bool operator==(const Resolve&) const = default;
    };
    struct RestartChunk {
        bool operator==(const RestartChunk&) const = default;
    };
    struct SkipLiveChunk {
        bool operator==(const SkipLiveChunk&) const = default;
    };
    /// Drop what is queued; the next live chunk starts by itself.
    struct ResumeLive {
        bool operator==(const ResumeLive&) const = default;
    };
    struct Noop {
        bool operator==(const Noop&) const = default;
    };
    using Action =
        std::variant<ReplaceQueue, Resolve, RestartChunk, SkipLiveChunk, ResumeLive, Noop>;

    Action action = Noop{};

    template <typename Case>
    [[nodiscard]] const Case* as() const {
        return std::get_if<Case>(&action);
    }
    bool operator==(const SkipOutcome&) const = default;
};

}  // namespace sonra
