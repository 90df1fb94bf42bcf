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

/// What came of a try to take the lock.
enum class ServiceLockTry { taken, held, failed };

/// The same with nothing said on standard error: `held` by another process, or `failed` because the
/// file can't be opened or locked. What keeps trying uses it.
ServiceLockTry tryServiceLock(const std::optional<std::string>& lockPath = std::nullopt);

/// Whether this process took the lock and hasn't given it up.
bool holdsServiceLock();

/// Gives the lock of this process up at its end, at once, also where a child that is just being
/// started has a copy of the descriptor.
void releaseServiceLock();

}  // namespace sonra
