#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "search/SearchHit.h"
#include "search/SessionSnapshot.h"

namespace sonra {

/// Ranks the sessions of a snapshot against what somebody typed; sub-agents are left out. No
/// instances and no state; any thread. Takes time in proportion to the snapshot.
struct Searcher {
    static constexpr int fieldWeightProject = 8;
    static constexpr int fieldWeightSessionId = 6;
    static constexpr int fieldWeightFirstPrompt = 4;
    static constexpr int fieldWeightLastSnippet = 3;
    static constexpr int recencyDayBonus = 3;
    static constexpr int recencyWeekBonus = 1;
    static constexpr int attachedBonus = 2;
    static constexpr std::size_t maxSessions = 8;
    static constexpr std::size_t maxProjects = 5;

    /// Projects first, then sessions, the best first in both. An empty query gives the sessions
    /// that are attached, then the others, in the snapshot's order.
    static std::vector<SearchHit> search(const SessionSnapshot& snapshot, std::string_view query,
                                         const std::set<std::string>& attachedIds);
    /// As if it were `now`, in seconds since 1970.
    static std::vector<SearchHit> search(const SessionSnapshot& snapshot, std::string_view query,
                                         const std::set<std::string>& attachedIds, double now);
};

}  // namespace sonra
