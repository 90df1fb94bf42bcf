#pragma once

#include "ingest/ClaudeCodeParser.h"
#include "ingest/LiveTailReader.h"

namespace sonra {

/// Follows a transcript of Claude Code: one JSON object on each line of a file that only grows.
///
/// The cursor is `byte`. A line is returned once its line feed is there; until then the cursor
/// stays at its start and every read looks at it anew. Lines aren't decoded here. Immutable, any
/// thread, never throws.
class ClaudeCodeReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const ClaudeCodeParser& parser() const override { return parser_; }

  private:
    ClaudeCodeParser parser_;
};

}  // namespace sonra
