#include "ingest/LiveTailReaderRegistry.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "ingest/AiderChatReader.h"
#include "ingest/AiderReader.h"
#include "ingest/ClaudeCodeAgentReader.h"
#include "ingest/ClaudeCodeReader.h"
#include "ingest/ClineMessagesReader.h"
#include "ingest/ClineReader.h"
#include "ingest/CodexItemsReader.h"
#include "ingest/CodexReader.h"
#include "ingest/GeminiLinesReader.h"
#include "ingest/GeminiReader.h"
#include "ingest/OpenCodeDatabaseReader.h"
#include "ingest/OpenCodePartsReader.h"
#include "ingest/OpenCodeReader.h"
#include "ingest/PiReader.h"
#include "ingest/ShapedReader.h"

namespace sonra::LiveTailReaderRegistry {
namespace {

/// A reader of an agent, with readers of the further shapes that its transcripts may have.
template <typename Original, typename... Shapes>
const LiveTailReader* shaped() {
    static const ShapedReader reader = [] {
        std::vector<std::unique_ptr<const ShapeReader>> shapes;
        (shapes.push_back(std::make_unique<const Shapes>()), ...);
        return ShapedReader(std::make_unique<const Original>(), std::move(shapes));
    }();
    return &reader;
}

}  // namespace

std::span<const LiveTailReader* const> all() {
    static const std::vector<const LiveTailReader*> readers{
        shaped<ClaudeCodeReader, ClaudeCodeAgentReader>(),
        shaped<CodexReader, CodexItemsReader>(),
        shaped<AiderReader, AiderChatReader>(),
        shaped<GeminiReader, GeminiLinesReader>(),
        shaped<ClineReader, ClineMessagesReader>(),
        shaped<OpenCodeReader, OpenCodeDatabaseReader, OpenCodePartsReader>(),
        shaped<PiReader>(),
    };
    return readers;
}

const LiveTailReader* reader(std::string_view source) {
    const auto readers = all();
    const auto found = std::ranges::find(readers, source, &LiveTailReader::id);
    return found == readers.end() ? nullptr : *found;
}

}  // namespace sonra::LiveTailReaderRegistry
