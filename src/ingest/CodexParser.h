#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in the JSON lines of Codex.
///
/// Its replies are the response items of type "message"; the events that announce the same words
/// are passed over. An id is made from the words and their time. Stateless, any thread, never
/// fails.
class CodexParser : public HarnessParser {
  public:
    std::string_view id() const override { return "codex"; }

    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
