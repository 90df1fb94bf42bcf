#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "GrowingFile.h"
#include "ingest/ClineMessagesReader.h"
#include "ingest/ClineReader.h"
#include "ingest/ClineText.h"

namespace {

using namespace sonra;

/// Either shape, from the beginning: the cursor ends behind all elements, and there is nothing
/// behind it.
void readDocument(const LiveTailReader& reader, const fuzz::MemoryFile& file) {
    const auto reading = reader.readSince(file.path(), TailOffset::messageIndex(0));
    fuzz::require(reading.newOffset == reader.initialOffset(file.path()));
    fuzz::require(reader.readSince(file.path(), reading.newOffset).records.empty());
    for (const auto& record : reading.records) {
        const auto message = reader.parser().parse(record);
        if (!message) continue;
        fuzz::requireSound(*message);
        fuzz::require(message->messageId.size() == 16);
    }
}

void strip(const std::string& input) {
    const std::string spoken = ClineText::spokenPart(input);
    fuzz::require(text::trimmed(spoken) == spoken);
    fuzz::require(spoken.find('\n') == std::string::npos);
    fuzz::require(spoken.find("  ") == std::string::npos);
}

void writeNumber(const std::string& input) {
    double number = 0;
    if (input.size() >= sizeof number) std::memcpy(&number, input.data(), sizeof number);
    const std::string text = ClineText::numberText(number);
    // What was written reads back as the same number.
    if (!text.empty()) fuzz::require(std::strtod(text.c_str(), nullptr) == number);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const fuzz::MemoryFile file;
    const std::string input(reinterpret_cast<const char*>(data), size);
    file.write(input);
    readDocument(ClineReader(), file);
    readDocument(ClineMessagesReader(), file);
    strip(input);
    writeNumber(input);
    return 0;
}
