#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "frame/UrlLaunch.h"

namespace sonra::QtApplicationCall {

/// Asks the program that has this one's name on the session bus to open the addresses. Nobody is
/// started for it. One that was asked and says nothing within `answerLimit`, or is gone before it
/// does, may have opened them all the same. Blocks, for a second or two longer at most. Needs no
/// application object: where there is none it makes one for the call, so none may be made
/// meanwhile.
UrlDelivery open(const std::vector<std::string>& urls,
                 std::chrono::milliseconds answerLimit = std::chrono::seconds(2));

}  // namespace sonra::QtApplicationCall
