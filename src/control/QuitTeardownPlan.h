#pragma once

#include <chrono>

namespace sonra::QuitTeardownPlan {

/// The process ends this long after the user's wish, even if an orderly end hangs.
inline constexpr std::chrono::seconds watchdogDeadline{1};
/// The watchdog waits on a thread of the pool: a hung main thread can't prevent it.
inline constexpr bool watchdogIsOffMain = true;
/// Nobody waits for the daemon's end.
inline constexpr bool stopDaemonBlocks = false;

}  // namespace sonra::QuitTeardownPlan
