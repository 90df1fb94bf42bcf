#pragma once

#include <chrono>

namespace sonra::QuitTeardownPlan {

/// The process ends this long after the user's wish, even if an orderly end hangs.
inline constexpr std::chrono::seconds watchdogDeadline{1};
/// The watchdog waits on a thread of its own: neither a hung main thread nor work that fills the
/// pool can prevent it.
inline constexpr bool watchdogIsOffMain = true;
/// Nobody waits for the daemon's end.
inline constexpr bool stopDaemonBlocks = false;

}  // namespace sonra::QuitTeardownPlan
