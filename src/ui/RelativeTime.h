#pragma once

#include <string>

namespace sonra::menu {

/// How long ago a session last spoke, in one unit: "now", "3m", "2h", "3d". Empty for an unknown
/// time, which is 0 or less. Both in milliseconds since the epoch; a time to come is "now". Pure.
std::string relativeTime(double mtimeMs, double nowMs);

/// A session counts as active up to this age.
bool isRecent(double mtimeMs, double nowMs);

}  // namespace sonra::menu
