#include "ingest/LineReading.h"

#include <algorithm>
#include <utility>

#include "ingest/FileTail.h"
#include "ingest/Utf8Trim.h"

namespace sonra::LineReading {
namespace {

/// How much of `bytes` is complete lines.
std::string_view completeLines(std::string_view bytes) {
    bytes = bytes.substr(0, trimToCompleteUtf8(bytes));
    return bytes.substr(0, bytes.rfind('\n') + 1);  // none when there is no line feed
}

/// Hands each line of `bytes`, which ends in a line feed, and its position to `take`; empty lines
/// aren't handed out.
template <typename Take>
void eachLine(std::string_view bytes, Take take) {
    std::size_t start = 0;
    while (start < bytes.size()) {
        const std::size_t end = bytes.find('\n', start);
        if (end > start) take(bytes.substr(start, end - start), start);
        start = end + 1;
    }
}

}  // namespace

TailOffset endOf(const std::string& url) {
    return TailOffset::byte(FileTail::sizeOf(url));
}

LiveTailReader::Reading since(const std::string& url, TailOffset offset) {
    const auto tail = FileTail::read(url, offset.intValue());
    if (!tail) return {{}, offset};
    const auto bytes = completeLines(tail->bytes());
    std::vector<TranscriptRecord> records;
    eachLine(bytes, [&](std::string_view line, std::size_t) {
        records.push_back(TranscriptRecord::jsonl(std::string(line)));
    });
    return {std::move(records),
            TailOffset::byte(offset.intValue() + static_cast<std::int64_t>(bytes.size()))};
}

Lines linesSince(const std::string& url, std::int64_t position) {
    const auto tail = FileTail::read(url, position);
    if (!tail) return {{}, position};
    const auto bytes = completeLines(tail->bytes());
    std::vector<Line> lines;
    eachLine(bytes, [&](std::string_view line, std::size_t at) {
        lines.push_back({std::string(line), position + static_cast<std::int64_t>(at)});
    });
    return {std::move(lines), position + static_cast<std::int64_t>(bytes.size())};
}

std::vector<std::string_view> linesIn(std::string_view bytes) {
    std::vector<std::string_view> lines;
    eachLine(completeLines(bytes),
             [&](std::string_view line, std::size_t) { lines.push_back(line); });
    return lines;
}

std::string before(const std::string& url, std::int64_t position, std::int64_t count) {
    const auto start = std::max<std::int64_t>(position - count, 0);
    if (start >= position) return {};
    const auto block = FileTail::read(url, start, static_cast<std::size_t>(position - start));
    return block ? std::string(block->bytes()) : std::string();
}

std::string beginning(const std::string& url, std::size_t count) {
    const auto head = FileTail::read(url, 0, count);
    return head ? std::string(head->bytes()) : std::string();
}

}  // namespace sonra::LineReading
