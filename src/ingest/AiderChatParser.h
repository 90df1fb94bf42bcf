#pragma once

#include "ingest/AiderChat.h"
#include "ingest/HarnessParser.h"

namespace sonra {

/// Takes the replies that AiderChatReader has found. They come as objects of a form of its own,
/// which no agent writes. Stateless, any thread, never fails.
class AiderChatParser : public HarnessParser {
  public:
    std::string_view id() const override { return "aider"; }
    /// Lines are the other shape's.
    std::optional<HistoryMessage> parse(const TranscriptRecord& record) const override;

    static TranscriptRecord recordOf(const AiderChat::Reply& reply);
};

}  // namespace sonra
