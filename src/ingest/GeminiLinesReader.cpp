#include "ingest/GeminiLinesReader.h"

#include <algorithm>

#include "ingest/GeminiChange.h"
#include "ingest/GeminiReader.h"
#include "ingest/LineReading.h"
#include "ingest/RecordTexts.h"

namespace sonra {
namespace {

constexpr std::size_t beginning = 65536;
/// How far before the end a message that may still change is looked for.
constexpr std::int64_t lookBack = 65536;

bool isHeader(std::string_view line) {
    const auto object = json::parseObject(line);
    return object && json::stringAt(*object, "sessionId") &&
           json::stringAt(*object, "projectHash") && json::find(*object, "type") == nullptr;
}

bool isChange(std::string_view line) {
    return line.starts_with(R"({"$set":)") || line.starts_with(R"({"$rewindTo":)");
}

/// Tells messages that are final from the one that may still be written anew.
class Versions {
  public:
    void take(const LineReading::Line& line) {
        auto object = json::parseObject(line.text);
        if (!object) return;
        if (GeminiChange::rewindTarget(*object)) {
            // Whatever message it goes back to, the newest is among those that it takes back.
            waiting_.reset();
        } else if (const Json* messages = GeminiChange::replacement(*object)) {
            replaceWaiting(*messages);
        } else {
            takeMessage(std::move(*object), line.start);
        }
    }

    void finish() {
        if (waiting_) records_.push_back(TranscriptRecord::jsonObject(std::move(waiting_->object)));
        waiting_.reset();
    }

    /// Where the message that waits starts, absent if none does.
    std::optional<std::int64_t> waitingAt() const {
        return waiting_ ? std::optional(waiting_->start) : std::nullopt;
    }
    std::vector<TranscriptRecord> takeRecords() { return std::move(records_); }

  private:
    struct Waiting {
        std::string id;
        Json object;
        std::int64_t start;
    };

    void takeMessage(Json object, std::int64_t start) {
        auto id = GeminiChange::messageId(object);
        const bool isReply = RecordTexts::isTextAt(object, "type", "gemini");
        if (id.empty() && !isReply) return;  // no message
        if (waiting_ && waiting_->id == id) {
            waiting_->object = std::move(object);
            return;
        }
        finish();
        if (isReply) waiting_ = Waiting{std::move(id), std::move(object), start};
        // Without an id nothing can take its place.
        if (waiting_ && waiting_->id.empty()) finish();
    }

    void replaceWaiting(const Json& messages) {
        if (!waiting_) return;
        const auto newer = std::ranges::find_if(messages, [&](const Json& message) {
            return GeminiChange::messageId(message) == waiting_->id;
        });
        if (newer == messages.end())
            waiting_.reset();
        else
            waiting_->object = *newer;
    }

    std::optional<Waiting> waiting_;
    std::vector<TranscriptRecord> records_;
};

}  // namespace

bool GeminiLinesReader::recognises(const std::string& url) const {
    if (GeminiReader::isDocument(url)) return false;
    const std::string head = LineReading::beginning(url, beginning);
    const auto lines = LineReading::linesIn(head);
    if (lines.empty()) return false;
    return isHeader(lines.front()) || std::ranges::any_of(lines, isChange);
}

TailOffset GeminiLinesReader::initialOffset(const std::string& url) const {
    const auto end = LineReading::endOf(url);
    if (quiet_.isQuiet(url)) return end;
    const auto start = std::max<std::int64_t>(end.intValue() - lookBack, 0);
    Versions versions;
    for (const auto& line : LineReading::linesSince(url, start).lines) versions.take(line);
    const auto waiting = versions.waitingAt();
    return waiting ? TailOffset::byte(*waiting) : end;
}

LiveTailReader::Reading GeminiLinesReader::readSince(const std::string& url,
                                                     TailOffset offset) const {
    const auto [lines, linesEnd] = LineReading::linesSince(url, offset.intValue());
    Versions versions;
    for (const auto& line : lines) versions.take(line);
    if (versions.waitingAt() && quiet_.isQuiet(url)) versions.finish();
    const auto end = versions.waitingAt().value_or(linesEnd);
    return {versions.takeRecords(), TailOffset::byte(end)};
}

}  // namespace sonra
