#pragma once

#include <deque>
#include <memory>
#include <string>

#include "history/HistorySource.h"
#include "ingest/HistoryMessage.h"

namespace sonra {

/// Makes messages of a transcript's lines, which come from the last to the first.
///
/// Most agents' lines speak for themselves. Some take back or repeat what stands before them, so an
/// instance belongs to one reading. Used by one thread at a time, never fails.
class BackwardLines {
  public:
    virtual ~BackwardLines() = default;
    BackwardLines(const BackwardLines&) = delete;
    BackwardLines& operator=(const BackwardLines&) = delete;

    /// Appends the messages that are known now that this line is read, newest first.
    virtual void take(std::string line, std::deque<HistoryMessage>& messages) = 0;
    /// Appends what is left once the first line was taken.
    virtual void finish(std::deque<HistoryMessage>& /*messages*/) {}
    /// True if the lines before those that were taken count for nothing.
    [[nodiscard]] virtual bool isComplete() const { return false; }

    /// True if the newest message may be written again with more words, unless its agent has
    /// finished: nothing behind it tells that it is whole.
    [[nodiscard]] virtual bool mayNewestChange() const { return false; }

    /// For the lines of this transcript; null where lines can't be read backward.
    static std::unique_ptr<BackwardLines> of(const std::string& transcript, HistorySource source);

  protected:
    BackwardLines() = default;
};

}  // namespace sonra
