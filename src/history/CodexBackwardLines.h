#pragma once

#include <optional>
#include <string>
#include <vector>

#include "history/BackwardLines.h"
#include "ingest/CodexItemParser.h"
#include "ingest/CodexParser.h"

namespace sonra {

/// Lines of Codex, where an event may report a message that a response item of the same turn holds
/// too: it is handed out once, as CodexItemsReader does it live, and as the response item. For the
/// rest as BackwardLines.
class CodexBackwardLines : public BackwardLines {
  public:
    void take(std::string line, std::deque<HistoryMessage>& messages) override;
    void finish(std::deque<HistoryMessage>& messages) override;

  private:
    /// A message with the turn that its line names, if it does.
    struct Response {
        std::string text;
        std::string turn;
    };

    void takeResponse(HistoryMessage response, std::string turn,
                      std::deque<HistoryMessage>& messages);
    /// True if a response item behind the event, in this turn, says the same; it does so for one.
    bool isAnswered(const HistoryMessage& event, const std::string& turn);

    CodexParser responses_;
    CodexItemParser events_;
    /// An event's message, until the line before it is known that parts it from others.
    std::optional<HistoryMessage> waiting_;
    /// Response items of the turn that is being read, whose events may still come.
    std::vector<Response> unreported_;
};

}  // namespace sonra
