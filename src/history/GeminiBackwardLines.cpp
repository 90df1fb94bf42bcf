#include "history/GeminiBackwardLines.h"

#include <utility>

#include "ingest/GeminiChange.h"

namespace sonra {

void GeminiBackwardLines::take(std::string line, std::deque<HistoryMessage>& messages) {
    if (isComplete_) return;
    const auto object = json::parseObject(line);
    if (!object) return;
    if (auto target = GeminiChange::rewindTarget(*object)) {
        rewinds_.push_back(*std::move(target));
        hasNewest_ = true;
    } else if (const Json* all = GeminiChange::replacement(*object)) {
        for (auto message = all->rbegin(); message != all->rend(); ++message)
            takeMessage(*message, messages);
        isComplete_ = true;
    } else {
        takeMessage(*object, messages);
    }
}

/// While something is skipped an older rewind is gone back first: what it has taken back wasn't
/// there any more when the newer one came.
void GeminiBackwardLines::takeMessage(const Json& object, std::deque<HistoryMessage>& messages) {
    const std::string id = GeminiChange::messageId(object);
    if (!rewinds_.empty()) {
        if (id == rewinds_.back() && !id.empty()) rewinds_.pop_back();
        return;
    }
    if (!id.empty() && !seen_.insert(id).second) return;
    auto message = parser_.parse(TranscriptRecord::jsonObject(object));
    // Without an id nothing can take its place.
    if (!hasNewest_) mayNewestChange_ = message && !id.empty();
    hasNewest_ = hasNewest_ || message || !id.empty();
    if (message) messages.push_back(*std::move(message));
}

}  // namespace sonra
