#include "ingest/CodexItemsReader.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ingest/CodexLines.h"
#include "ingest/CodexParser.h"
#include "ingest/FileTail.h"
#include "ingest/LineReading.h"

namespace sonra {
namespace {

/// How far before an event its response item is looked for.
constexpr std::int64_t lookBack = 65536;

/// The words of a response item, empty if the line is none.
std::string responseText(const Json& line) {
    const auto message = CodexParser().parse(TranscriptRecord::jsonObject(line));
    return message ? message->text : std::string();
}

/// True if the lines right before `position` have said `text` already.
bool wasSaidBefore(const std::string& url, std::int64_t position, const std::string& text) {
    const auto start = std::max<std::int64_t>(position - lookBack, 0);
    const auto block = FileTail::read(url, start, static_cast<std::size_t>(position - start));
    if (!block) return false;
    const auto lines = LineReading::linesIn(block->bytes());
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        const auto object = json::parseObject(*line);
        if (!object || !CodexLines::separates(*object)) continue;
        return responseText(*object) == text;
    }
    return false;
}

/// Returns lines as they are, and of the events those whose words stand nowhere else.
class Sorter {
  public:
    explicit Sorter(const std::string& url) : url_(url) {}

    void take(const LineReading::Line& line) {
        std::optional<Json> object;
        if (waiting_ || line.text.find("item_completed") != std::string::npos)
            object = json::parseObject(line.text);
        if (object && waiting_ && CodexLines::separates(*object)) {
            if (responseText(*object) == waiting_->text)
                waiting_.reset();
            else
                finish();
        }
        if (!object || !takeEvent(*object, line.start))
            records_.push_back(TranscriptRecord::jsonl(line.text));
    }

    void finish() {
        if (!waiting_) return;
        const auto place = records_.begin() + static_cast<std::ptrdiff_t>(waiting_->place);
        records_.insert(place, TranscriptRecord::jsonObject(std::move(waiting_->object)));
        waiting_.reset();
    }

    std::optional<std::int64_t> waitingAt() const {
        return waiting_ ? std::optional(waiting_->start) : std::nullopt;
    }
    /// Without those behind an event that waits, which will be read again.
    std::vector<TranscriptRecord> takeRecords() {
        if (waiting_)
            records_.erase(records_.begin() + static_cast<std::ptrdiff_t>(waiting_->place),
                           records_.end());
        return std::move(records_);
    }

  private:
    struct Waiting {
        Json object;
        std::string text;
        std::int64_t start;
        std::size_t place;  ///< number of records before it
    };

    /// True if the line is a message's event.
    bool takeEvent(Json& object, std::int64_t start) {
        const auto message = CodexItemParser().parse(TranscriptRecord::jsonObject(object));
        if (!message) return false;
        if (!wasSaidBefore(url_, start, message->text))
            waiting_ = Waiting{std::move(object), message->text, start, records_.size()};
        return true;
    }

    const std::string& url_;
    std::optional<Waiting> waiting_;
    std::vector<TranscriptRecord> records_;
};

}  // namespace

bool CodexItemsReader::recognises(const std::string& /*url*/) const {
    return true;
}

TailOffset CodexItemsReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading CodexItemsReader::readSince(const std::string& url,
                                                    TailOffset offset) const {
    const auto [lines, end] = LineReading::linesSince(url, offset.intValue());
    Sorter sorter(url);
    for (const auto& line : lines) sorter.take(line);
    if (sorter.waitingAt() && quiet_.isQuiet(url)) sorter.finish();
    const auto cursor = sorter.waitingAt().value_or(end);
    return {sorter.takeRecords(), TailOffset::byte(cursor)};
}

}  // namespace sonra
