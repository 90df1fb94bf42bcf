#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in the message files of OpenCode.
///
/// The words are the message's `content`, as a text or as a list of objects with texts, or else its
/// `text`. A message without an id is named by its words and its time of creation. Stateless, any
/// thread, never fails.
class OpenCodeParser : public HarnessParser {
  public:
    std::string_view id() const override { return "opencode"; }

  protected:
    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
