#pragma once

#include <string>

namespace sonra::menu {

/// A speed as its label shows it: "2x", "1.5x". The decimal point is a point in every locale. Pure.
std::string formatSpeed(double speed);

}  // namespace sonra::menu
