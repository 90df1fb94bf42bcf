#pragma once

#include "frame/SubAgentFile.h"
#include "ingest/ClaudeCodeParser.h"
#include "ingest/ShapeReader.h"

namespace sonra {

/// Stands in front of the file that a sub-agent of Claude Code writes beside its session's: what it
/// says isn't meant for the user, so nothing is ever returned.
///
/// The cursor is `byte` and goes along with the file's end. Immutable, any thread, never throws.
class ClaudeCodeAgentReader : public ShapeReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    bool recognises(const std::string& url) const override { return isAgentFile(url); }
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::byte; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const ClaudeCodeParser& parser() const override { return parser_; }

    static bool isAgentFile(const std::string& url) { return SubAgentFile::isAt(url); }

  private:
    ClaudeCodeParser parser_;
};

}  // namespace sonra
