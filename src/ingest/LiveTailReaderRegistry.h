#pragma once

#include <span>
#include <string_view>

#include "ingest/LiveTailReader.h"

/// The readers of the agents that can be followed. Built once, on first use; any thread.
namespace sonra::LiveTailReaderRegistry {

/// One reader for each source, in the order in which agents are listed.
std::span<const LiveTailReader* const> all();

/// The reader whose id is exactly `source`, or null.
const LiveTailReader* reader(std::string_view source);

}  // namespace sonra::LiveTailReaderRegistry
