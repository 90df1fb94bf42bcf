#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in the JSON lines of Claude Code.
///
/// Turns of sub-agents, which share the file, are nothing to speak, and so are lines whose content
/// isn't a list of elements; tool use and thinking inside a reply are passed over. Stateless, any
/// thread, never fails.
class ClaudeCodeParser : public HarnessParser {
  public:
    std::string_view id() const override { return "claude-code"; }

  protected:
    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
