#pragma once

#include "ingest/GeminiParser.h"
#include "ingest/QuietFile.h"
#include "ingest/ShapeReader.h"

namespace sonra {

/// Follows the lines that newer versions of Gemini CLI write: a header first, and among the
/// messages lines that change what was written before.
///
/// A message is written again under its id when more of it is known, so its last version counts: it
/// is returned once another message follows or nothing has been written for 1.5 s, and the cursor
/// waits in front of it till then. A "$rewindTo" takes back the message that waits; "$set" may
/// replace it. The cursor is `byte`. Immutable, any thread, never throws.
class GeminiLinesReader : public ShapeReader {
  public:
    explicit GeminiLinesReader(QuietFile quiet = QuietFile()) : quiet_(std::move(quiet)) {}

    std::string_view id() const override { return parser_.id(); }
    /// True for a file of lines that begins with a session's header, or has such a change near its
    /// beginning.
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::byte; }
    /// Before a message that may still be written anew, which isn't old for a listener who comes
    /// now.
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const GeminiParser& parser() const override { return parser_; }

  private:
    GeminiParser parser_;
    QuietFile quiet_;
};

}  // namespace sonra
