#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "history/BackwardLines.h"
#include "ingest/GeminiParser.h"

namespace sonra {

/// Lines of newer versions of Gemini CLI, where a message may stand several times, the last one
/// counting, and lines may take back what stands before them. For the rest as BackwardLines.
class GeminiBackwardLines : public BackwardLines {
  public:
    void take(std::string line, std::deque<HistoryMessage>& messages) override;
    [[nodiscard]] bool isComplete() const override { return isComplete_; }
    [[nodiscard]] bool mayNewestChange() const override { return mayNewestChange_; }

  private:
    void takeMessage(const Json& object, std::deque<HistoryMessage>& messages);

    GeminiParser parser_;
    std::unordered_set<std::string> seen_;  ///< ids of messages whose last version was taken
    /// First messages of what was taken back, the innermost last; empty when nothing is skipped.
    std::vector<std::string> rewinds_;
    bool isComplete_ = false;
    bool hasNewest_ = false;  ///< what stands last was taken
    bool mayNewestChange_ = false;
};

}  // namespace sonra
