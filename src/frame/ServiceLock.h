#pragma once

#include <optional>
#include <string>

namespace sonra {

/// Makes this process the one service of its user: true if it now holds the lock, which it keeps
/// until it ends, however it ends. False if another process holds it or the file can't be opened;
/// the reason is on standard error. Never waits.
///
/// Without a path the lock is `$HOME/.claude/tts/sonra.lock`, and its directory is made first. The
/// file stays behind at the end; the pid in it is for people only.
bool acquireServiceLock(const std::optional<std::string>& lockPath = std::nullopt);

/// Gives the lock of this process up at its end, at once, also where a child that is just being
/// started has a copy of the descriptor.
void releaseServiceLock();

}  // namespace sonra
