#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "GrowingFile.h"
#include "history/SessionHistory.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexReader.h"
#include "ingest/ShapedReader.h"

namespace {

using namespace sonra;

std::unique_ptr<const LiveTailReader> reader(bool isQuiet) {
    std::vector<std::unique_ptr<const ShapeReader>> shapes;
    shapes.push_back(std::make_unique<const CodexItemsReader>(fuzz::quietNow(isQuiet)));
    return std::make_unique<const ShapedReader>(std::make_unique<const CodexReader>(),
                                                std::move(shapes));
}

void pageBackward(const std::string& content) {
    static const fuzz::MemoryFile file;
    file.write(content);
    SessionHistory history(file.path(), HistorySource::codex, 1024);
    while (!history.loadOlder(2).empty()) {
    }
    for (const auto& message : history.loadedMessages()) fuzz::requireSound(message);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const auto busy = reader(false);
    static const auto quiet = reader(true);
    const std::string input(reinterpret_cast<const char*>(data), size);
    fuzz::readInTwoSteps(*busy, *quiet, input, fuzz::cutOf(input));
    pageBackward(input);
    return 0;
}
