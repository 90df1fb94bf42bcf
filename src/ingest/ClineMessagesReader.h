#pragma once

#include "ingest/ClineParser.h"
#include "ingest/ShapeReader.h"
#include "ingest/UnchangedDocuments.h"

namespace sonra {

/// Follows a transcript of newer versions of Cline: an object with an array "messages", rewritten
/// whole as it grows, whose elements are what they were in the bare array before.
///
/// The cursor is `messageIndex`. Any thread, never throws.
class ClineMessagesReader : public ShapeReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    /// True if the document begins as an object does.
    bool recognises(const std::string& url) const override;
    TailOffset::Kind cursorKind() const override { return TailOffset::Kind::messageIndex; }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const ClineParser& parser() const override { return parser_; }

  private:
    ClineParser parser_;
    mutable UnchangedDocuments unchanged_;
};

}  // namespace sonra
