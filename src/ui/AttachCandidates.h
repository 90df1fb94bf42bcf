#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "frame/SessionRecords.h"

namespace sonra::menu {

/// The sessions that may be attached, newest first: one row an id, what a discovered row lacks
/// filled from the recent one, and none that is attached already. Pure.
std::vector<DiscoveredRow> mergedAttachCandidates(const std::vector<DiscoveredRow>& discovered,
                                                  const std::vector<DiscoveredRow>& recent,
                                                  const std::vector<AttachedSession>& attached);

/// The last component of a path: "b" of "/a/b" and of "/a/b/", empty only of an empty path.
std::string folderOf(std::string_view path);

/// What a row looks like to the user without its texts: folder and agent.
std::string folderSourceKey(const DiscoveredRow& row);

/// The keys that more than one of the rows has; such rows need their ids shown. Pure.
std::set<std::string> collidingFolderSourceKeys(const std::vector<DiscoveredRow>& rows);

}  // namespace sonra::menu
