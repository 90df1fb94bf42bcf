#include <cstdint>
#include <string>

#include "GrowingFile.h"
#include "history/SessionHistory.h"
#include "ingest/PiReader.h"

namespace {

using namespace sonra;

void pageBackward(const std::string& content) {
    static const fuzz::MemoryFile file;
    file.write(content);
    SessionHistory history(file.path(), HistorySource::pi, 1024);
    while (!history.loadOlder(2).empty()) {
    }
    for (const auto& message : history.loadedMessages()) fuzz::requireSound(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const PiReader reader;
    const std::string input(reinterpret_cast<const char*>(data), size);
    fuzz::readInTwoSteps(reader, reader, input, fuzz::cutOf(input));
    pageBackward(input);
    return 0;
}
