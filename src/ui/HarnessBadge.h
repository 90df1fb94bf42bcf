#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/StatusItem.h"

namespace sonra::menu {

/// The chip of the agent with this id, in front of `following`. An unknown agent has the chip of
/// Claude Code. Pure.
std::vector<MenuText> harnessBadge(std::string_view source, std::string_view following);

}  // namespace sonra::menu
