#pragma once

#include <functional>
#include <string>

#include "linux/DesktopSearchItems.h"
#include "platform/MainLoop.h"

class QObject;

namespace sonra {

/// The program's items in the search of the desktop: GNOME Shell and KRunner ask over the session
/// bus, and what they asked is answered from memory at once.
///
/// Made and asked on the main thread; the loop and the exported object must outlive it, and are
/// those of QtApplicationInterface, before it is published. The index may be changed on any thread.
/// Handlers are called by the loop, after the desktop got its answer. Nothing happens unasked.
class QtDesktopSearch {
  public:
    struct Handlers {
        /// A result was chosen; the address is its item's identifier. It may be of an earlier
        /// process, or anything else that a caller thought of.
        std::function<void(const std::string& url)> openUrl;
        /// The program's own search is to go on with this query.
        std::function<void(const std::string& query)> search;
    };

    QtDesktopSearch(MainLoop& loop, QObject& exported, Handlers handlers);

    [[nodiscard]] DesktopSearchIndex& index() { return items_; }

  private:
    DesktopSearchItems items_;
};

}  // namespace sonra
