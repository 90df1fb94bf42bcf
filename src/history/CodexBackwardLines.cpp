#include "history/CodexBackwardLines.h"

#include <utility>

#include "ingest/CodexLines.h"

namespace sonra {

void CodexBackwardLines::take(std::string line, std::deque<HistoryMessage>& messages) {
    auto object = json::parseObject(line);
    if (!object) return;
    const bool separates = CodexLines::separates(*object);
    const auto record = TranscriptRecord::jsonObject(*std::move(object));
    if (auto response = responses_.parse(record)) {
        if (waiting_ && waiting_->text == response->text) waiting_.reset();
        finish(messages);
        responseBehind_ = response->text;
        messages.push_back(*std::move(response));
        return;
    }
    if (separates) finish(messages);
    auto event = events_.parse(record);
    if (event && event->text != responseBehind_) waiting_ = std::move(event);
    if (separates) responseBehind_.clear();
}

void CodexBackwardLines::finish(std::deque<HistoryMessage>& messages) {
    if (waiting_) messages.push_back(*std::move(waiting_));
    waiting_.reset();
}

}  // namespace sonra
