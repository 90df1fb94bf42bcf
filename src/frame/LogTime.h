#pragma once

#include <string>

namespace sonra {

/// The present time as log records carry it: ISO 8601 in UTC with milliseconds,
/// "2026-11-15T07:54:00.123Z". Cheap: the calendar is asked once a second on each thread.
std::string logTime();

/// Appends the same to `out`.
void appendLogTime(std::string& out);

}  // namespace sonra
