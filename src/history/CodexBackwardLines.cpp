#include "history/CodexBackwardLines.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "history/ReplyMarks.h"
#include "ingest/CodexLines.h"
#include "ingest/CodexSorter.h"

namespace sonra {

void CodexBackwardLines::take(std::string line, std::deque<HistoryMessage>& messages) {
    const bool isLast = endsPart(line);
    bytes_ += line.size();
    lines_.push_back(std::move(line));
    if (isLast) finish(messages);
}

bool CodexBackwardLines::endsPart(const std::string& line) const {
    if (bytes_ >= mostBytes) return true;
    const bool isEnough = bytes_ >= enoughBytes;
    if (!isEnough && !CodexLines::mayBeginTurn(line)) return false;
    const auto object = json::parseObject(line);
    if (!object) return false;
    if (CodexLines::beginsTurn(*object)) return true;
    return isEnough && CodexLines::separates(*object) && !responses_.parseObject(*object) &&
           !events_.parseObject(*object);
}

void CodexBackwardLines::finish(std::deque<HistoryMessage>& messages) {
    CodexSorter sorter("");
    for (auto line = lines_.rbegin(); line != lines_.rend(); ++line) sorter.take(*line, 0);
    sorter.finish();
    std::vector<HistoryMessage> found;
    for (const auto& record : sorter.takeRecords()) {
        const auto* line = record.asJsonl();
        if (line != nullptr && !ReplyMarks::mayBeReply(*line)) continue;
        auto message = line != nullptr ? responses_.parse(record) : events_.parse(record);
        if (message) found.push_back(*std::move(message));
    }
    std::ranges::move(found.rbegin(), found.rend(), std::back_inserter(messages));
    lines_.clear();
    bytes_ = 0;
}

}  // namespace sonra
