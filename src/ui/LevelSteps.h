#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "platform/StatusItem.h"

namespace sonra::menu {

/// The levels that a menu offers where it can't have a slider, one row each; the step nearest to
/// the present level is checked, of two the higher. Pure.
std::vector<MenuRow> volumeSteps(std::int64_t percent,
                                 const std::function<void(std::int64_t percent)>& choose);
std::vector<MenuRow> speedSteps(double speed, const std::function<void(double speed)>& choose);

}  // namespace sonra::menu
