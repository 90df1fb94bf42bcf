#pragma once

#include <optional>
#include <string_view>

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

    /// The texts of this type in the "content" of `holder`, a part of `line`; absent if there are
    /// none.
    static std::optional<HistoryMessage> messageOf(const Json& line, const Json& holder,
                                                   std::string_view type);
};

}  // namespace sonra
