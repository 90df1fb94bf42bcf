#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "frame/Json.h"
#include "frame/SessionRecords.h"

namespace sonra {

/// The two session lists of the shared document, and the rules about them that need nothing else.
/// Pure functions, any thread. Rows that can't be read are left out; nothing fails.
struct SessionRows {
    std::vector<AttachedSession> attached;
    std::vector<DiscoveredRow> discovered;
    /// The first agent that a row names: one of the attached sessions', else one of those that were
    /// found; also of a row that can't be read otherwise. Empty if none is named.
    std::string leadingSource = {};

    static SessionRows from(const Json& document);

    [[nodiscard]] std::set<std::string> attachedIds() const;

    /// A fresh Claude Code session counts up to this age.
    static constexpr double freshForMs = 900'000;

    /// The discovered session that may be attached without asking: the only fresh one of Claude
    /// Code while nothing is attached. With two fresh ones the program doesn't guess. `nowMs` in
    /// milliseconds since the epoch.
    static std::optional<DiscoveredRow> soleAutoAttachCandidate(
        const std::vector<AttachedSession>& attached, const std::vector<DiscoveredRow>& discovered,
        double nowMs);

    /// True if an attached id vanished between two readings, which only somebody else can have
    /// done.
    static bool shouldLatchStateLevelDetach(const std::set<std::string>& previous,
                                            const std::set<std::string>& current);

    /// The directory name that Claude Code gives to a project: "/Users/test/proj22" becomes
    /// "-Users-test-proj22".
    static std::string sanitizeCwd(const std::string& cwd);
};

}  // namespace sonra
