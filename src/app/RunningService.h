#pragma once

#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// Gives the addresses to the service of this user that runs, over its socket or the session bus,
/// and says with which status this process is to end: 0, or 69 (EX_UNAVAILABLE) with a sentence on
/// standard error if within some seconds the service doesn't take them or doesn't say so, or nobody
/// can be it. Absent if none runs, in which case this process holds the service's lock from now on,
/// or if there are no addresses. Main thread; blocks.
std::optional<int> openInRunningService(const std::vector<std::string>& urls);

}  // namespace sonra
