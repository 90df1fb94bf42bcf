#pragma once

#include <functional>
#include <string_view>

#include "ingest/AiderParser.h"
#include "ingest/LiveTailReader.h"

namespace sonra {

/// Follows aider's chat history: a Markdown file that only grows, cut at its headings of the fourth
/// level.
///
/// The cursor is `byte`. All that was read is consumed, the last section too, complete or not. A
/// turn's time stands in a heading before the answer and lives only within one read: an answer that
/// begins a read has none. Immutable, any thread, never throws.
class AiderReader : public LiveTailReader {
  public:
    std::string_view id() const override { return parser_.id(); }
    TailOffset initialOffset(const std::string& url) const override;
    Reading readSince(const std::string& url, TailOffset offset) const override;
    const AiderParser& parser() const override { return parser_; }

    /// True for a time of the form "2026-05-03 08:00:00" and nothing else.
    static bool isAiderTimestampHeader(std::string_view line);

    /// Hands out the stretches of `text` between the separators "\n#### ", without those that are
    /// blank; `firstLine` is trimmed.
    static void eachSection(
        std::string_view text,
        const std::function<void(std::string_view section, std::string_view firstLine)>& take);

  private:
    AiderParser parser_;
};

}  // namespace sonra
