#include "ingest/ClaudeCodeReader.h"

#include "ingest/FileTail.h"
#include "ingest/Utf8Trim.h"

namespace sonra {
namespace {

/// The lines of `bytes`, which ends in a line feed, without their terminators and without empty
/// ones.
std::vector<TranscriptRecord> linesOf(std::string_view bytes) {
    std::vector<TranscriptRecord> lines;
    while (!bytes.empty()) {
        const std::size_t end = bytes.find('\n');
        if (end > 0) lines.push_back(TranscriptRecord::jsonl(std::string(bytes.substr(0, end))));
        bytes.remove_prefix(end + 1);
    }
    return lines;
}

}  // namespace

TailOffset ClaudeCodeReader::initialOffset(const std::string& url) const {
    return TailOffset::byte(FileTail::sizeOf(url));
}

LiveTailReader::Reading ClaudeCodeReader::readSince(const std::string& url,
                                                    TailOffset offset) const {
    const auto tail = FileTail::read(url, offset.intValue());
    if (!tail) return {{}, offset};
    const std::string_view bytes = tail->bytes().substr(0, trimToCompleteUtf8(tail->bytes()));
    const std::size_t complete = bytes.rfind('\n') + 1;  // 0 when there is no line feed
    return {linesOf(bytes.substr(0, complete)),
            TailOffset::byte(offset.intValue() + static_cast<std::int64_t>(complete))};
}

}  // namespace sonra
