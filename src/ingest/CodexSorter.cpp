#include "ingest/CodexSorter.h"

#include <algorithm>
#include <utility>

#include "ingest/CodexItemParser.h"
#include "ingest/CodexLines.h"
#include "ingest/CodexParser.h"
#include "ingest/QuietFile.h"

namespace sonra {
namespace {

/// True if the response item came so long after its event that the event was heard.
bool isLate(Timestamp event, Timestamp response) {
    const bool areKnown = event != Timestamp() && response != Timestamp();
    return areKnown && response - event > QuietFile::enough;
}

}  // namespace

CodexSorter::Reply CodexSorter::Reply::of(HistoryMessage message, const Json& line) {
    return {std::move(message.text), CodexLines::turnOf(line), message.timestamp};
}

bool CodexSorter::Reply::isSameAs(const Reply& other) const {
    return CodexLines::mayBeOneTurn(turn, other.turn) && text == other.text;
}

CodexSorter::CodexSorter(std::string before) : before_(std::move(before)) {
    for (const auto line : LineReading::linesIn(before_)) take(line, 0);
    finish();
    records_.clear();
}

void CodexSorter::take(std::string_view line, std::int64_t start) {
    if (!hasEvents_ && CodexLines::mayBeEvent(line)) learnOfResponses();
    if (!hasEvents_) {
        beforeEvents_.push_back(line);
    } else if (waiting_ || CodexLines::mayPair(line)) {
        auto object = json::parseObject(line);
        if (object && !sort(*std::move(object), start)) return;
    }
    records_.push_back(TranscriptRecord::jsonl(std::string(line)));
}

void CodexSorter::learnOfResponses() {
    hasEvents_ = true;
    for (const auto line : beforeEvents_) {
        auto object = CodexLines::mayPair(line) ? json::parseObject(line) : std::nullopt;
        if (object) sort(*std::move(object), 0);
    }
    beforeEvents_.clear();
}

bool CodexSorter::sort(Json line, std::int64_t start) {
    if (auto response = CodexParser().parseObject(line))
        return sortResponse(Reply::of(*std::move(response), line));
    if (CodexLines::separates(line)) finish();
    if (CodexLines::beginsTurn(line)) {
        events_.clear();
        responses_.clear();
    }
    auto event = CodexItemParser().parseObject(line);
    if (!event) return true;
    auto reply = Reply::of(*std::move(event), line);
    return sortEvent(std::move(line), std::move(reply), start);
}

bool CodexSorter::sortResponse(const Reply& response) {
    const bool isAwaited = waiting_ && response.isSameAs(waiting_->reply);
    if (isAwaited && !isLate(waiting_->reply.time, response.time)) {
        waiting_.reset();
        return true;
    }
    finish();
    if (takeSame(events_, response)) return false;
    responses_.push_back(response);
    return true;
}

bool CodexSorter::sortEvent(Json line, Reply event, std::int64_t start) {
    if (!takeSame(responses_, event))
        waiting_ = Waiting{std::move(line), std::move(event), start, records_.size()};
    return false;
}

bool CodexSorter::takeSame(Replies& replies, const Reply& reply) {
    const auto found =
        std::ranges::find_if(replies, [&](const auto& other) { return reply.isSameAs(other); });
    if (found == replies.end()) return false;
    replies.erase(found);
    return true;
}

void CodexSorter::finish() {
    if (!waiting_) return;
    const auto place = records_.begin() + static_cast<std::ptrdiff_t>(waiting_->place);
    records_.insert(place, TranscriptRecord::jsonObject(std::move(waiting_->object)));
    events_.push_back(std::move(waiting_->reply));
    waiting_.reset();
}

std::optional<std::int64_t> CodexSorter::waitingAt() const {
    return waiting_ ? std::optional(waiting_->start) : std::nullopt;
}

std::vector<TranscriptRecord> CodexSorter::takeRecords() {
    if (waiting_)
        records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(waiting_->place),
                       records_.end());
    return std::move(records_);
}

}  // namespace sonra
