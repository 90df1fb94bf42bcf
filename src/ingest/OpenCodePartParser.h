#pragma once

#include <string>

#include "ingest/HarnessParser.h"

namespace sonra {

/// Takes the texts that the readers of OpenCode's parts have found. They come as objects of a form
/// of its own, which the agent doesn't write. Stateless, any thread, never fails.
class OpenCodePartParser : public HarnessParser {
  public:
    std::string_view id() const override { return "opencode"; }
    /// Files that hold a message and its text are the original parser's.
    std::optional<HistoryMessage> parse(const TranscriptRecord& record) const override;

    static TranscriptRecord recordOf(const std::string& messageId, const std::string& text);
};

}  // namespace sonra
