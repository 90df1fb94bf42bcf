#include <cstdint>
#include <cstdlib>
#include <string>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "ingest/ClaudeCodeReader.h"
#include "ingest/NarrationChunker.h"
#include "ingest/TextCleaner.h"

namespace {

using namespace sonra;
using fuzz::MemoryFile;
using fuzz::require;

void speak(const std::string& text) {
    const std::string cleaned = TextCleaner::cleanForSpeech(text);
    require(text::trimmed(cleaned) == cleaned);
    require(cleaned.find("\n\n\n") == std::string::npos);
    for (const auto& chunk : NarrationChunker::split(cleaned)) {
        require(!chunk.empty() && chunk.find('\n') == std::string::npos);
    }
}

void parse(const TranscriptRecord& record) {
    const auto message = ClaudeCodeParser().parse(record);
    if (!message) return;
    require(!message->text.empty());
    speak(message->text);
}

/// However far the file had been written at the first look, the records are those of the whole.
void readInTwoSteps(std::string_view content, std::size_t cut) {
    static const MemoryFile file;
    const ClaudeCodeReader reader;
    file.write(content.substr(0, cut));
    auto records = reader.readSince(file.path(), TailOffset::byte(0));
    file.write(content);
    const auto rest = reader.readSince(file.path(), records.newOffset);
    records.records.insert(records.records.end(), rest.records.begin(), rest.records.end());
    const auto whole = reader.readSince(file.path(), TailOffset::byte(0));
    require(whole.records == records.records && whole.newOffset == rest.newOffset);
    require(whole.newOffset.intValue() == static_cast<std::int64_t>(content.rfind('\n') + 1));
    for (const auto& record : whole.records) parse(record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    parse(TranscriptRecord::jsonl(input));
    speak(input);
    // Files are slow: an eighth of the inputs is enough.
    if (size > 0 && data[0] % 8 == '{' % 8) readInTwoSteps(input, data[size / 2] % (size + 1));
    const Json text = input;
    parseTimestamp(&text);
    return 0;
}
