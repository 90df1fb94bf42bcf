#pragma once

#include "ingest/ClineParser.h"
#include "ingest/LiveTailReader.h"
#include "ingest/UnchangedDocuments.h"

namespace sonra {

/// Follows a transcript of Cline: a JSON array of messages, rewritten whole as it grows.
///
/// The cursor is `messageIndex`. An array that has shrunk is waited for until it is longer than it
/// was. Any thread, never throws.
class ClineReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override;
    TailOffset::Kind cursorKindOf(const std::string& /*url*/) const override {
        return TailOffset::Kind::messageIndex;
    }
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const ClineParser& parser() const override { return parser_; }

  private:
    ClineParser parser_;
    mutable UnchangedDocuments unchanged_;
};

}  // namespace sonra
