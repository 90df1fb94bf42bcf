#pragma once

#include <string>

namespace sonra {

/// How long ago something was, in short words and one unit: "2 hr. ago", "3 days ago", "in 5 min.".
/// Both in seconds since 1970. Any thread.
std::string relativeDate(double time, double now);

}  // namespace sonra
