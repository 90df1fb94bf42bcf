#include "history/CodexBackwardLines.h"

#include <algorithm>
#include <utility>

#include "ingest/CodexLines.h"

namespace sonra {

void CodexBackwardLines::take(std::string line, std::deque<HistoryMessage>& messages) {
    auto object = json::parseObject(line);
    if (!object) return;
    const bool separates = CodexLines::separates(*object);
    const bool beginsTurn = CodexLines::beginsTurn(*object);
    auto turn = CodexLines::turnOf(*object);
    const auto record = TranscriptRecord::jsonObject(*std::move(object));
    if (auto response = responses_.parse(record))
        return takeResponse(*std::move(response), std::move(turn), messages);
    if (separates) finish(messages);
    auto event = events_.parse(record);
    if (event && !isAnswered(*event, turn)) waiting_ = std::move(event);
    if (beginsTurn) unreported_.clear();
}

void CodexBackwardLines::takeResponse(HistoryMessage response, std::string turn,
                                      std::deque<HistoryMessage>& messages) {
    const bool isReported = waiting_ && waiting_->text == response.text;
    if (isReported) waiting_.reset();
    finish(messages);
    if (!isReported) unreported_.push_back({response.text, std::move(turn)});
    messages.push_back(std::move(response));
}

bool CodexBackwardLines::isAnswered(const HistoryMessage& event, const std::string& turn) {
    const auto found = std::ranges::find_if(unreported_, [&](const Response& response) {
        return response.text == event.text && CodexLines::mayBeOneTurn(response.turn, turn);
    });
    if (found == unreported_.end()) return false;
    unreported_.erase(found);
    return true;
}

void CodexBackwardLines::finish(std::deque<HistoryMessage>& messages) {
    if (waiting_) messages.push_back(*std::move(waiting_));
    waiting_.reset();
}

}  // namespace sonra
