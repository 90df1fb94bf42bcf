#include "history/MessageCounter.h"

#include "history/ClaudeCodeIds.h"
#include "history/ReplyScan.h"
#include "history/SessionHistory.h"

namespace sonra {
namespace {

constexpr int pageSize = 64;

MessageCounter::Ids scanForward(const std::string& transcript, const std::atomic<bool>& cancelled) {
    MessageCounter::Ids ids;
    ClaudeCodeIds parser;
    ReplyScan scan(transcript, cancelled);
    while (const auto line = scan.next()) {
        if (auto id = parser.idOf(*line)) ids.insert(*std::move(id));
    }
    return ids;
}

MessageCounter::Ids pageBackward(const std::string& transcript, HistorySource source,
                                 const std::atomic<bool>& cancelled) {
    MessageCounter::Ids ids;
    SessionHistory history(transcript, source);
    while (!cancelled) {
        const auto page = history.loadOlder(pageSize);
        if (page.empty()) break;
        for (const auto& message : page) ids.insert(message.messageId);
    }
    return ids;
}

}  // namespace

std::optional<MessageCounter::Ids> MessageCounter::messageIds(const std::string& transcript,
                                                              HistorySource source,
                                                              const std::atomic<bool>& cancelled) {
    auto ids = source == HistorySource::claudeCode ? scanForward(transcript, cancelled)
                                                   : pageBackward(transcript, source, cancelled);
    if (cancelled) return std::nullopt;
    return ids;
}

}  // namespace sonra
