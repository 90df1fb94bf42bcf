#include "ingest/CodexSorter.h"

#include <algorithm>
#include <utility>

#include "ingest/CodexItemParser.h"
#include "ingest/CodexLines.h"
#include "ingest/CodexParser.h"

namespace sonra {

bool CodexSorter::Reply::isSameAs(const Reply& other) const {
    return CodexLines::mayBeOneTurn(turn, other.turn) && text == other.text;
}

std::optional<CodexSorter::Reply> CodexSorter::responseIn(const Json& line) {
    auto message = CodexParser().parse(TranscriptRecord::jsonObject(line));
    if (!message) return std::nullopt;
    return Reply{std::move(message->text), CodexLines::turnOf(line)};
}

std::optional<CodexSorter::Reply> CodexSorter::eventIn(const Json& line) {
    auto message = CodexItemParser().parse(TranscriptRecord::jsonObject(line));
    if (!message) return std::nullopt;
    return Reply{std::move(message->text), CodexLines::turnOf(line)};
}

CodexSorter::CodexSorter(std::string before) : before_(std::move(before)) {
    for (const auto line : LineReading::linesIn(before_)) takeOld(line);
}

void CodexSorter::takeOld(std::string_view line) {
    lines_.push_back(line);
    const auto object = decodedIfUseful(line);
    if (!object) return;
    if (CodexLines::beginsTurn(*object)) said_.clear();
    if (isSaid(*object)) return;
    auto event = eventIn(*object);
    if (event && !wasSaidBefore(*event)) said_.push_back(*std::move(event));
}

void CodexSorter::take(const LineReading::Line& line) {
    lines_.push_back(line.text);
    auto object = decodedIfUseful(line.text);
    if (object && !endsWait(*object)) {
        if (CodexLines::separates(*object)) finish();
        if (CodexLines::beginsTurn(*object)) said_.clear();
        if (isSaid(*object)) return;
        if (auto event = eventIn(*object)) {
            if (!wasSaidBefore(*event))
                waiting_ =
                    Waiting{*std::move(object), *std::move(event), line.start, records_.size()};
            return;
        }
    }
    records_.push_back(TranscriptRecord::jsonl(line.text));
}

void CodexSorter::finish() {
    if (!waiting_) return;
    const auto place = records_.begin() + static_cast<std::ptrdiff_t>(waiting_->place);
    records_.insert(place, TranscriptRecord::jsonObject(std::move(waiting_->object)));
    said_.push_back(std::move(waiting_->reply));
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

std::optional<Json> CodexSorter::decodedIfUseful(std::string_view line) const {
    const bool isEvent = line.find("item_completed") != std::string_view::npos;
    if (!isEvent && !waiting_ && said_.empty()) return std::nullopt;
    return json::parseObject(line);
}

bool CodexSorter::endsWait(const Json& line) {
    if (!waiting_) return false;
    const auto response = responseIn(line);
    if (!response || !response->isSameAs(waiting_->reply)) return false;
    waiting_.reset();
    return true;
}

bool CodexSorter::isSaid(const Json& line) {
    if (said_.empty()) return false;
    const auto response = responseIn(line);
    if (!response) return false;
    const auto found =
        std::ranges::find_if(said_, [&](const auto& event) { return response->isSameAs(event); });
    if (found == said_.end()) return false;
    said_.erase(found);
    return true;
}

bool CodexSorter::wasSaidBefore(const Reply& event) const {
    for (auto line = lines_.rbegin() + 1; line != lines_.rend(); ++line) {
        const auto object = json::parseObject(*line);
        if (!object || !CodexLines::separates(*object)) continue;
        const auto response = responseIn(*object);
        return response && response->isSameAs(event);
    }
    return false;
}

}  // namespace sonra
