#pragma once

#include <variant>

namespace sonra {

/// Where in the conversation the listener stands. A value.
struct MessageHistoryQueueState {
    /// Nothing has played since the history was cleared.
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    /// Playback follows the newest audio.
    struct Live {
        bool operator==(const Live&) const = default;
    };
    /// Some messages back from the newest: 1 is the one before it.
    struct History {
        int messageIndex = 1;
        int totalKnown = 0;  ///< messages of the session, as known when the cursor moved
        bool operator==(const History&) const = default;
    };
    using Cursor = std::variant<Idle, Live, History>;

    Cursor cursor = Idle{};
    /// Messages of the session in focus that arrived while the cursor stood in history.
    int newLiveMessageCount = 0;

    bool operator==(const MessageHistoryQueueState&) const = default;
};

}  // namespace sonra
