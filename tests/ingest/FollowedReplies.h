#pragma once

#include <string>
#include <utility>
#include <vector>

#include "ingest/HistoryMessage.h"
#include "ingest/TailOffset.h"

namespace sonra::test {

/// What a reader of OpenCode's finds in a session behind `cursor`, which moves on.
template <typename Reader>
std::vector<HistoryMessage> followedMessages(const Reader& reader, const std::string& session,
                                             TailOffset& cursor) {
    const auto reading = reader.readSince(session, cursor);
    cursor = cursor.advanced(reading.newOffset);
    std::vector<HistoryMessage> messages;
    for (const auto& record : reading.records)
        if (auto found = reader.parser().parse(record)) messages.push_back(*std::move(found));
    return messages;
}

/// "id: text" of what is spoken.
inline std::vector<std::string> asLines(const std::vector<HistoryMessage>& messages) {
    std::vector<std::string> lines;
    for (const auto& found : messages) lines.push_back(found.messageId + ": " + found.text);
    return lines;
}

}  // namespace sonra::test
