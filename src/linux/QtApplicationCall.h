#pragma once

#include <string>
#include <vector>

namespace sonra::QtApplicationCall {

/// Asks the program that has this one's name on the session bus to open the addresses; true if it
/// took them. Nobody is started for it. Blocks, for some seconds at most. Needs no application
/// object: where there is none it makes one for the call, so none may be made meanwhile.
bool open(const std::vector<std::string>& urls);

}  // namespace sonra::QtApplicationCall
