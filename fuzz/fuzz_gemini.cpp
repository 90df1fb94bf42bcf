#include <cstdint>
#include <string>

#include "GrowingFile.h"
#include "history/SessionHistory.h"
#include "ingest/GeminiLinesReader.h"
#include "ingest/GeminiParser.h"
#include "ingest/GeminiReader.h"

namespace {

using namespace sonra;

void parse(const std::string& input) {
    const auto message = GeminiParser().parse(TranscriptRecord::jsonl(input));
    if (!message) return;
    fuzz::requireSound(*message);
    fuzz::require(!message->messageId.empty());
}

void pageBackward(const std::string& content) {
    static const fuzz::MemoryFile file;
    file.write(content);
    GeminiLinesReader().recognises(file.path());
    SessionHistory history(file.path(), HistorySource::gemini, 1024);
    while (!history.loadOlder(2).empty()) {
    }
    for (const auto& message : history.loadedMessages()) fuzz::requireSound(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const GeminiReader original;
    static const GeminiLinesReader busy(fuzz::quietNow(false));
    static const GeminiLinesReader quiet(fuzz::quietNow(true));
    const std::string input(reinterpret_cast<const char*>(data), size);
    parse(input);
    fuzz::readInTwoSteps(original, original, input, fuzz::cutOf(input));
    fuzz::readInTwoSteps(busy, quiet, input, fuzz::cutOf(input));
    pageBackward(input);
    return 0;
}
