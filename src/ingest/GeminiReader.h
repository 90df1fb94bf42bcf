#pragma once

#include "ingest/GeminiParser.h"
#include "ingest/LiveTailReader.h"
#include "ingest/UnchangedDocuments.h"

namespace sonra {

/// Follows a transcript of Gemini CLI: a document with an array of messages, which is rewritten
/// whole, where the name ends in ".json"; else a file with a JSON object on each line.
///
/// The cursor of a document is `messageIndex`, of lines `byte`. Any thread, never
/// throws.
class GeminiReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override;
    TailOffset::Kind cursorKindOf(const std::string& url) const override {
        return isDocument(url) ? TailOffset::Kind::messageIndex : TailOffset::Kind::byte;
    }
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const GeminiParser& parser() const override { return parser_; }

    /// True if the transcript is a document by its name.
    static bool isDocument(const std::string& url);

  private:
    GeminiParser parser_;
    mutable UnchangedDocuments unchanged_;
};

}  // namespace sonra
