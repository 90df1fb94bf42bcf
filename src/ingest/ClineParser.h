#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in a message of Cline.
///
/// Marks of tool calls that Cline leaves in them are taken out. An id is made from the message's
/// time and the beginning of its words. Stateless, any thread, never fails.
class ClineParser : public HarnessParser {
  public:
    std::string_view id() const override { return "cline"; }

  protected:
    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
