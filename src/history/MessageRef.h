#pragma once

#include <string>
#include <variant>

#include "ingest/Timestamp.h"

namespace sonra {

/// Names one message on the listener's timeline, and says how it is known. A value.
struct MessageRef {
    /// Found in the transcript.
    struct History {
        Timestamp timestamp;
        bool operator==(const History&) const = default;
    };
    /// Heard live.
    struct LiveTail {
        bool operator==(const LiveTail&) const = default;
    };
    using Origin = std::variant<History, LiveTail>;

    std::string messageId;
    std::string sessionId;
    Origin origin;

    bool operator==(const MessageRef&) const = default;
};

}  // namespace sonra
