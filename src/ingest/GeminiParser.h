#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the model's own words in a record of Gemini CLI, a line or an element of a document.
///
/// A record without an id gets one made from its words and their time. Stateless, any thread, never
/// fails.
class GeminiParser : public HarnessParser {
  public:
    std::string_view id() const override { return "gemini"; }

  protected:
    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
