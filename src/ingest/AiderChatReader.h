#pragma once

#include "ingest/AiderChatParser.h"
#include "ingest/QuietFile.h"
#include "ingest/ShapeReader.h"

namespace sonra {

/// Follows aider's chat history as aider writes it today.
///
/// A reply has no mark at its end: the next line of the user ends it, or 1.5 s without a write.
/// Until then the cursor, which is `byte`, stays before it, so that nothing half-written is spoken;
/// after a quiet that came too early the rest is a reply of its own. Immutable, any thread as far
/// as the clock is, never throws.
class AiderChatReader : public ShapeReader {
  public:
    explicit AiderChatReader(QuietFile quiet = QuietFile()) : quiet_(std::move(quiet)) {}

    std::string_view id() const override { return parser_.id(); }
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::byte; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const AiderChatParser& parser() const override { return parser_; }

  private:
    bool nothingFollows(const std::string& url, std::int64_t end) const;

    const QuietFile quiet_;
    AiderChatParser parser_;
};

}  // namespace sonra
