#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/SearchPanel.h"
#include "search/SearchHit.h"
#include "search/SessionIndex.h"

namespace sonra {

/// What the search panel says: its rows, hints and what stands there without rows. No instances and
/// no state; any thread.
struct SearchRows {
    /// `expandedProject` is empty where none is expanded; `now` is in seconds since 1970.
    static SearchRow row(const SearchHit& hit, const std::set<std::string>& attachedIds,
                         std::string_view expandedProject, double now);
    /// The keys that work on the selected row; null where there is none.
    static std::string footer(const SearchHit* selected);
    static std::string emptyState(const std::string& query, bool isSnapshotEmpty);
    static std::string scanningStrip(const ReconcileProgress& progress);
    /// The folder by which rows name a session.
    static std::string folderOf(const SessionMeta& session);
};

}  // namespace sonra
