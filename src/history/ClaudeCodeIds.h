#pragma once

#include <simdjson.h>
#include <optional>
#include <string>
#include <string_view>

#include "ingest/ClaudeCodeParser.h"

namespace sonra {

/// The ids of the messages that ClaudeCodeParser finds, several times faster and with bounded
/// memory, for those who want no more than the ids.
///
/// The fast parser is the stricter one: what it accepts, the other reads alike. What it refuses
/// (lone surrogates, numbers that are too large, invalid lines too) and long lines go to
/// ClaudeCodeParser. Keeps its buffers from line to line: used by one thread at a time.
class ClaudeCodeIds {
  public:
    ClaudeCodeIds();
    ~ClaudeCodeIds();
    ClaudeCodeIds(const ClaudeCodeIds&) = delete;
    ClaudeCodeIds& operator=(const ClaudeCodeIds&) = delete;

    /// Absent if the line is no message; an empty id is one.
    std::optional<std::string> idOf(std::string_view line);

    /// Longer lines aren't worth the memory that the fast parser takes: 13 bytes for each.
    static constexpr std::size_t longestFastLine = std::size_t{256} << 10;

  private:
    struct FastParser;

    std::unique_ptr<FastParser> fast_;
    ClaudeCodeParser exact_;
};

}  // namespace sonra
