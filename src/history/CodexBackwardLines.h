#pragma once

#include <optional>

#include "history/BackwardLines.h"
#include "ingest/CodexItemParser.h"
#include "ingest/CodexParser.h"

namespace sonra {

/// Lines of Codex, where an event may report a message that a response item beside it holds too: it
/// is handed out once, as CodexItemsReader does it live. For the rest as BackwardLines.
class CodexBackwardLines : public BackwardLines {
  public:
    void take(std::string line, std::deque<HistoryMessage>& messages) override;
    void finish(std::deque<HistoryMessage>& messages) override;

  private:
    CodexParser responses_;
    CodexItemParser events_;
    /// An event's message, until the line before it is known that parts it from others.
    std::optional<HistoryMessage> waiting_;
    /// The response item behind the lines read last, if nothing parts them from it.
    std::string responseBehind_;
};

}  // namespace sonra
