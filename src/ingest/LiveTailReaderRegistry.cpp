#include "ingest/LiveTailReaderRegistry.h"

#include <algorithm>
#include <array>

#include "ingest/ClaudeCodeReader.h"

namespace sonra::LiveTailReaderRegistry {

std::span<const LiveTailReader* const> all() {
    static const ClaudeCodeReader claudeCode;
    static const std::array<const LiveTailReader*, 1> readers{&claudeCode};
    return readers;
}

const LiveTailReader* reader(std::string_view source) {
    const auto readers = all();
    const auto found = std::ranges::find(readers, source, &LiveTailReader::id);
    return found == readers.end() ? nullptr : *found;
}

}  // namespace sonra::LiveTailReaderRegistry
