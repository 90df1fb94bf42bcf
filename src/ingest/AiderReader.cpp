#include "ingest/AiderReader.h"

#include <algorithm>

#include "frame/Text.h"
#include "ingest/FileTail.h"
#include "ingest/LineReading.h"
#include "ingest/Utf8Trim.h"

namespace sonra {
namespace {

constexpr std::string_view separator = "\n#### ";
constexpr std::string_view timestampShape = "dddd-dd-dd dd:dd:dd";

bool fits(char c, char shape) {
    return shape == 'd' ? c >= '0' && c <= '9' : c == shape;
}

/// Puts the turn's time before the section, so that the parser can name the answer by it.
std::string withTurn(std::string_view turnTimestamp, std::string_view section) {
    std::string bytes(AiderParser::tsSentinel);
    bytes.append(turnTimestamp).append("\n").append(section);
    return bytes;
}

std::vector<TranscriptRecord> recordsOf(std::string_view text) {
    std::vector<TranscriptRecord> records;
    std::string_view turnTimestamp;
    AiderReader::eachSection(text, [&](std::string_view section, std::string_view firstLine) {
        if (AiderReader::isAiderTimestampHeader(firstLine)) {
            turnTimestamp = firstLine;
        } else if (AiderParser::isResponseHeader(firstLine)) {
            records.push_back(TranscriptRecord::jsonl(withTurn(turnTimestamp, section)));
            return;
        }
        records.push_back(TranscriptRecord::jsonl(std::string(section)));
    });
    return records;
}

}  // namespace

TailOffset AiderReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading AiderReader::readSince(const std::string& url, TailOffset offset) const {
    const auto tail = FileTail::read(url, offset.intValue());
    if (!tail) return {{}, offset};
    const auto text = tail->bytes().substr(0, trimToCompleteUtf8(tail->bytes()));
    if (!text::isUtf8(text)) return {{}, offset};
    return {recordsOf(text),
            TailOffset::byte(offset.intValue() + static_cast<std::int64_t>(text.size()))};
}

bool AiderReader::isAiderTimestampHeader(std::string_view line) {
    return line.size() == timestampShape.size() && std::ranges::equal(line, timestampShape, fits);
}

void AiderReader::eachSection(
    std::string_view text,
    const std::function<void(std::string_view section, std::string_view firstLine)>& take) {
    for (bool more = true; more;) {
        const std::size_t end = text.find(separator);
        more = end != std::string_view::npos;
        const auto section = text.substr(0, end);
        if (!text::trimmed(section).empty())
            take(section, text::trimmed(section.substr(0, section.find('\n'))));
        if (more) text.remove_prefix(end + separator.size());
    }
}

}  // namespace sonra
