#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in the events by which newer versions of Codex report a finished
/// message ("item_completed" of an "AgentMessage").
///
/// Ids are made as CodexParser makes them. Whether the same words also stand in a response item is
/// the reader's to know. Stateless, any thread, never fails.
class CodexItemParser : public HarnessParser {
  public:
    std::string_view id() const override { return "codex"; }

    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
