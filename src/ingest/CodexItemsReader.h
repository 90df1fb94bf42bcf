#pragma once

#include "ingest/CodexItemParser.h"
#include "ingest/QuietFile.h"
#include "ingest/ShapeReader.h"

namespace sonra {

/// Follows the lines of newer versions of Codex, which report a finished message as an event and
/// write no response item for it.
///
/// Lines are returned as they are, and such events decoded. Where a response item with the same
/// words follows at once, the event isn't returned; to know that, the cursor waits in front of it
/// until a line follows that ends the wait, or nothing has been written for 1.5 s. A response item
/// that comes later, in the same turn, isn't returned; nor is one whose event stood there when the
/// reading began. The cursor is `byte`. Immutable, any thread, never throws.
class CodexItemsReader : public ShapeReader {
  public:
    explicit CodexItemsReader(QuietFile quiet = QuietFile()) : quiet_(std::move(quiet)) {}

    std::string_view id() const override { return parser_.id(); }
    /// Always: such events may come anywhere among the other lines, which are returned as if they
    /// were alone.
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::byte; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const CodexItemParser& parser() const override { return parser_; }

  private:
    CodexItemParser parser_;
    QuietFile quiet_;
};

}  // namespace sonra
