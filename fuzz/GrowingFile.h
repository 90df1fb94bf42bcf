#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "ingest/LiveTailReader.h"
#include "ingest/QuietFile.h"

namespace sonra::fuzz {

/// A clock by which every file is quiet, and one by which none is that was just written.
inline QuietFile quietNow(bool isQuiet) {
    return QuietFile([isQuiet] {
        using std::chrono::system_clock;
        return isQuiet ? system_clock::time_point{} : system_clock::now();
    });
}

/// What must hold of a message whatever it was made of.
inline void requireSound(const HistoryMessage& message) {
    require(!message.text.empty() && text::trimmed(message.text) == message.text);
    require(text::isUtf8(message.text) && text::isUtf8(message.messageId));
}

/// Reads from the cursor, moves it forward and appends what was found.
inline void follow(const LiveTailReader& reader, const MemoryFile& file, std::size_t size,
                   TailOffset& cursor, std::vector<HistoryMessage>& messages) {
    const auto reading = reader.readSince(file.path(), cursor);
    require(reading.newOffset.intValue() >= cursor.intValue());
    require(reading.newOffset.intValue() <= static_cast<std::int64_t>(size));
    cursor = reading.newOffset;
    for (const auto& record : reading.records) {
        if (auto message = reader.parser().parse(record)) {
            requireSound(*message);
            messages.push_back(*std::move(message));
        }
    }
}

/// However far a file of lines had been written at the first look, the messages are those of the
/// whole. `busy` sees files that are being written to, `quiet` ones that aren't.
inline void readInTwoSteps(const LiveTailReader& busy, const LiveTailReader& quiet,
                           std::string_view content, std::size_t cut) {
    static const MemoryFile file;
    std::vector<HistoryMessage> stepwise;
    std::vector<HistoryMessage> whole;
    TailOffset cursor = TailOffset::byte(0);
    file.write(content.substr(0, cut));
    follow(busy, file, cut, cursor, stepwise);
    file.write(content);
    follow(quiet, file, content.size(), cursor, stepwise);
    cursor = TailOffset::byte(0);
    follow(quiet, file, content.size(), cursor, whole);
    require(stepwise == whole);
}

/// Where to cut an input in two, told by the input.
inline std::size_t cutOf(const std::string& input) {
    if (input.empty()) return 0;
    const auto byte = static_cast<unsigned char>(input[input.size() / 2]);
    return std::min(input.size(), input.size() * byte / 255);
}

}  // namespace sonra::fuzz
