#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "search/SessionRecord.h"

namespace sonra {

/// Makes one row of the catalogue of one Claude Code transcript, from a head and a tail of fixed
/// length: what it costs doesn't grow with the file. No instances; any thread; may wait for the
/// disk.
struct Summarizer {
    static constexpr std::size_t headBytes = 32768;
    static constexpr std::size_t tailBytes = 65536;

    /// Absent if the file's attributes can't be read. What can't be read further on leaves its
    /// fields empty.
    static std::optional<SessionRecord> summarize(const std::string& jsonlPath);
};

}  // namespace sonra
