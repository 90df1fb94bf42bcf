#pragma once

#include <chrono>

#include "frame/Json.h"

namespace sonra {

/// A moment in UTC. Microseconds, since nanoseconds would end in the year 2262.
using Timestamp = std::chrono::sys_time<std::chrono::microseconds>;

/// Reads an ISO 8601 internet date-time ("2026-05-01T10:00:00.000Z"): offset "Z", ±hh:mm or ±hhmm,
/// and optionally a fraction of one to nine digits. Null, another type, and any text of another
/// form or with a date that doesn't exist give 1970-01-01T00:00:00Z, so that a bad time never costs
/// a message. Any thread.
Timestamp parseTimestamp(const Json* value);

}  // namespace sonra
