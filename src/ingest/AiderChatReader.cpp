#include "ingest/AiderChatReader.h"

#include "ingest/FileTail.h"
#include "ingest/LineReading.h"
#include "ingest/Utf8Trim.h"

namespace sonra {
namespace {

/// More than any mark that a line starts with.
constexpr std::int64_t longestLookBack = 4096;

/// What stands before `position` in its line, as far as it tells whose line it is.
std::string lineStartBefore(const std::string& url, std::int64_t position) {
    const auto before = LineReading::before(url, position, longestLookBack);
    return before.substr(before.rfind('\n') + 1);
}

std::vector<TranscriptRecord> recordsOf(const std::vector<AiderChat::Reply>& replies,
                                        std::size_t count) {
    std::vector<TranscriptRecord> records;
    for (std::size_t i = 0; i < count; ++i)
        records.push_back(AiderChatParser::recordOf(replies[i]));
    return records;
}

}  // namespace

bool AiderChatReader::recognises(const std::string& url) const {
    return AiderChat::isWrittenSo(LineReading::beginning(url, AiderChat::beginningSize));
}

TailOffset AiderChatReader::initialOffset(const std::string& url) const {
    return LineReading::endOf(url);
}

LiveTailReader::Reading AiderChatReader::readSince(const std::string& url,
                                                   TailOffset offset) const {
    const std::int64_t start = offset.intValue();
    const auto tail = FileTail::read(url, start);
    if (!tail) return {{}, offset};
    auto text = tail->bytes();
    const bool isEnded = nothingFollows(url, start + static_cast<std::int64_t>(text.size()));
    text = text.substr(0, trimToCompleteUtf8(text));
    text.remove_suffix(AiderChat::undecidedTail(text));
    const auto found = AiderChat::read(text, start, lineStartBefore(url, start));
    const std::size_t end = isEnded ? found.end : found.turn;
    return {recordsOf(found.replies, isEnded ? found.replies.size() : found.ended),
            TailOffset::byte(start + static_cast<std::int64_t>(end))};
}

/// Asked after the read: a write since then makes the file unquiet.
bool AiderChatReader::nothingFollows(const std::string& url, std::int64_t end) const {
    return quiet_.isQuiet(url) && FileTail::sizeOf(url) == end;
}

}  // namespace sonra
