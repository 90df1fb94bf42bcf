#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "history/HistorySource.h"
#include "ingest/HistoryMessage.h"

namespace sonra {

/// A transcript's messages, page by page from its end. Used by one thread at a time; a call may
/// take as long as the disk does.
class HistoryPages {
  public:
    virtual ~HistoryPages() = default;

    /// The next up to `limit` messages, newest first; none at the end.
    virtual std::vector<HistoryMessage> loadOlder(int limit) = 0;
    [[nodiscard]] virtual bool isExhausted() const = 0;
};

/// Opens a transcript. Never null; any thread.
using OpenHistoryPages =
    std::function<std::unique_ptr<HistoryPages>(const std::string& transcript, HistorySource)>;

/// Opens it with a SessionHistory.
std::unique_ptr<HistoryPages> openSessionHistory(const std::string& transcript,
                                                 HistorySource source);

}  // namespace sonra
