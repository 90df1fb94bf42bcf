#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "frame/SerialQueue.h"
#include "history/HistoryPages.h"

namespace sonra {

class MainLoop;

/// Reads a session's transcript ahead of the listener, on a thread of its own, so that a page is
/// there before it is asked for.
///
/// Main thread only. Reading begins at once and stops some pages ahead of what has been taken.
/// Whoever needs a page that isn't there yet may wait for it, up to a deadline of his own. When the
/// pager goes, a read that is under way ends by itself and its result is dropped; look-ups are
/// answered with nothing.
class HistoryPager {
  public:
    using Page = std::vector<HistoryMessage>;
    using Deadline = std::chrono::steady_clock::time_point;
    using Found = std::function<void(std::optional<std::string> text)>;

    /// `open` is called on the pager's thread, and again for messages that were written since.
    /// `onArrival` runs on the main loop whenever a page has come.
    HistoryPager(MainLoop& loop, std::function<std::unique_ptr<HistoryPages>()> open, int pageSize,
                 int pagesAhead, std::function<void()> onArrival);
    ~HistoryPager();
    HistoryPager(const HistoryPager&) = delete;
    HistoryPager& operator=(const HistoryPager&) = delete;

    /// The next page, newest message first and without texts, waiting for it until `deadline`.
    /// After a wait in vain, further ones are refused until a page has come: a disk that hangs
    /// costs one wait. Absent if no page came, empty never.
    std::optional<Page> next(Deadline deadline);
    /// True if no page will come any more.
    [[nodiscard]] bool isExhausted() const;

    /// The body of a message, if it has been read.
    [[nodiscard]] std::optional<std::string> textOf(const std::string& messageId) const;
    /// As `textOf`, but looks further where it isn't known: in what was written since, and in older
    /// pages to the transcript's start. Waits as `next` does.
    std::optional<std::string> searchText(const std::string& messageId, Deadline deadline);
    /// Looks in the same places without waiting. `found` runs on the main thread: inside this call
    /// if the text is known, else later.
    void lookUp(const std::string& messageId, Found found);

  private:
    struct Shared;

    void readAhead();

    const std::shared_ptr<Shared> shared_;
    SerialQueue queue_{"sonra.history"};
};

}  // namespace sonra
