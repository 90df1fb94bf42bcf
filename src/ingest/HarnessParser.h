#pragma once

#include <optional>
#include <string_view>

#include "frame/Json.h"
#include "ingest/HistoryMessage.h"
#include "ingest/TranscriptRecord.h"

namespace sonra {

/// Turns one raw record of an agent's transcript into a message to speak, or into nothing.
///
/// Nothing is the answer for whatever must not be narrated: a user's turn, a tool's, a sub-agent's,
/// a record that doesn't decode or holds no text. Parsers are stateless and immutable, any thread;
/// they neither fail nor log.
class HarnessParser {
  public:
    virtual ~HarnessParser() = default;

    /// The source id, as sessions carry it.
    virtual std::string_view id() const = 0;

    /// Decodes a `jsonl` record, or takes a `jsonObject` as it is, and hands the object to
    /// `parseObject`. Parsers of formats that aren't JSON replace it.
    virtual std::optional<HistoryMessage> parse(const TranscriptRecord& record) const;

  protected:
    /// `object` is a JSON object.
    virtual std::optional<HistoryMessage> parseObject(const Json& object) const;
};

}  // namespace sonra
