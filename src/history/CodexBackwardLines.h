#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "history/BackwardLines.h"
#include "ingest/CodexItemParser.h"
#include "ingest/CodexParser.h"

namespace sonra {

/// Lines of Codex, where an event may report a message that a response item of the same turn holds
/// too: it is handed out once, and as the one of the two that was heard live.
///
/// What was heard depends on what came first, so the lines of a turn are kept until its first line
/// is read and then sorted as CodexItemsReader sorts them. Of a very long turn a part is kept: up
/// to the next call beyond `enoughBytes`, or to any line beyond `mostBytes`. For the rest as
/// BackwardLines.
class CodexBackwardLines : public BackwardLines {
  public:
    static constexpr std::size_t enoughBytes = std::size_t{1} << 20;
    static constexpr std::size_t mostBytes = 4 * enoughBytes;

    void take(std::string line, std::deque<HistoryMessage>& messages) override;
    void finish(std::deque<HistoryMessage>& messages) override;

  private:
    /// True if no reply before `line` belongs to one behind it, or it isn't worth finding out.
    [[nodiscard]] bool endsPart(const std::string& line) const;

    CodexParser responses_;
    CodexItemParser events_;
    std::vector<std::string> lines_;  ///< the last one first
    std::size_t bytes_ = 0;           ///< in the lines
};

}  // namespace sonra
