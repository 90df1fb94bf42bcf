#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "history/AiderDocument.h"
#include "ingest/AiderChatReader.h"
#include "ingest/AiderReader.h"

namespace {

using namespace sonra;
using fuzz::MemoryFile;
using fuzz::require;
using std::chrono::system_clock;

const TailOffset start = TailOffset::byte(0);

/// Reads from the cursor, moves it forward and appends what was found.
void follow(const LiveTailReader& reader, const MemoryFile& file, std::size_t size,
            TailOffset& cursor, std::vector<HistoryMessage>& messages) {
    const auto reading = reader.readSince(file.path(), cursor);
    require(reading.newOffset.intValue() >= cursor.intValue());
    require(reading.newOffset.intValue() <= static_cast<std::int64_t>(size));
    cursor = reading.newOffset;
    for (const auto& record : reading.records)
        if (auto message = reader.parser().parse(record)) messages.push_back(*std::move(message));
}

void checkWords(const std::vector<HistoryMessage>& messages) {
    for (const auto& message : messages) {
        require(!message.text.empty() && text::trimmed(message.text) == message.text);
        require(message.messageId.size() == 16);
    }
}

void readSections(const MemoryFile& file, std::size_t size) {
    TailOffset cursor = start;
    std::vector<HistoryMessage> messages;
    follow(AiderReader(), file, size, cursor, messages);
    checkWords(messages);
}

/// However far the file had been written at the first look, the replies are those of the whole.
void readChat(const MemoryFile& file, const std::string& content, std::size_t cut) {
    const AiderChatReader busy{QuietFile(system_clock::now)};
    const AiderChatReader quiet{QuietFile([] { return system_clock::time_point{}; })};
    TailOffset cursor = start;
    std::vector<HistoryMessage> stepwise;
    file.write(content.substr(0, cut));
    follow(busy, file, cut, cursor, stepwise);
    file.write(content);
    follow(quiet, file, content.size(), cursor, stepwise);
    std::vector<HistoryMessage> whole;
    cursor = start;
    follow(quiet, file, content.size(), cursor, whole);
    checkWords(whole);
    require(stepwise == whole);
    const auto paged = aiderDocument(file.path());
    if (quiet.recognises(file.path()))
        require(std::equal(paged.rbegin(), paged.rend(), whole.begin(), whole.end()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::string content(reinterpret_cast<const char*>(data), size);
    file.write(content);
    readSections(file, size);
    readChat(file, content, size == 0 ? 0 : data[size / 2] * size / 256);
    return 0;
}
