#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "ingest/Timestamp.h"

namespace sonra {

/// One thing an agent said. The `messageId` is the same whether the message was heard live or read
/// back from the transcript later; an empty one can't be told from others, and such a message isn't
/// narrated.
struct HistoryMessage {
    std::string messageId;
    std::string text;
    Timestamp timestamp;

    bool operator==(const HistoryMessage&) const = default;
};

}  // namespace sonra

template <>
struct std::hash<sonra::HistoryMessage> {
    std::size_t operator()(const sonra::HistoryMessage& message) const noexcept {
        const std::hash<std::string> ofText;
        const auto ticks = static_cast<std::size_t>(message.timestamp.time_since_epoch().count());
        return (ofText(message.messageId) * 31 + ofText(message.text)) * 31 + ticks;
    }
};
