#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "MemoryFile.h"
#include "history/MessageCounter.h"
#include "history/SessionHistory.h"
#include "ingest/ClaudeCodeParser.h"

namespace {

using namespace sonra;
using fuzz::MemoryFile;
using fuzz::require;

constexpr std::size_t smallestBlock = 1024;

/// The messages by the plain way, newest first.
std::vector<HistoryMessage> parsedIn(std::string_view content) {
    std::vector<HistoryMessage> messages;
    while (!content.empty()) {
        const auto end = std::min(content.find('\n'), content.size());
        const auto record = TranscriptRecord::jsonl(std::string(content.substr(0, end)));
        if (auto message = ClaudeCodeParser().parse(record))
            messages.push_back(*std::move(message));
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    std::reverse(messages.begin(), messages.end());
    return messages;
}

SessionHistory open(const MemoryFile& file) {
    return {file.path(), HistorySource::claudeCode, smallestBlock};
}

void readToTheStart(const MemoryFile& file, const std::vector<HistoryMessage>& expected) {
    auto history = open(file);
    while (!history.loadOlder(2).empty()) {
    }
    require(history.isExhausted());
    require(history.loadedMessages() == expected);
}

void count(const MemoryFile& file, const std::vector<HistoryMessage>& messages) {
    MessageCounter::Ids expected;
    for (const auto& message : messages) expected.insert(message.messageId);
    const std::atomic<bool> never = false;
    require(MessageCounter::messageIds(file.path(), HistorySource::claudeCode, never) == expected);
}

/// What is read before the file shrinks is right; afterwards it comes to an end.
void readWhileItShrinks(const MemoryFile& file, const std::vector<HistoryMessage>& expected,
                        std::size_t size) {
    auto history = open(file);
    history.loadOlder(1);
    file.resize(size);
    const auto before = history.loadedCount();
    while (!history.loadOlder(2).empty()) {
    }
    require(history.isExhausted());
    require(before <= expected.size());
    require(std::equal(expected.begin(), expected.begin() + static_cast<std::ptrdiff_t>(before),
                       history.loadedMessages().begin()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    const std::string content(reinterpret_cast<const char*>(data), size);
    const auto expected = parsedIn(content);
    file.write(content);
    readToTheStart(file, expected);
    count(file, expected);
    if (size > 0) readWhileItShrinks(file, expected, data[size / 2] * size / 256);
    return 0;
}
