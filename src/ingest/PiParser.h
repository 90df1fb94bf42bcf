#pragma once

#include "ingest/HarnessParser.h"

namespace sonra {

/// Finds the assistant's own words in the JSON lines of Pi.
///
/// The id is the record's own and empty in the oldest versions, which write none. Stateless, any
/// thread, never fails.
class PiParser : public HarnessParser {
  public:
    std::string_view id() const override { return "pi"; }

  protected:
    std::optional<HistoryMessage> parseObject(const Json& object) const override;
};

}  // namespace sonra
