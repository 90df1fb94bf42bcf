#pragma once

#include <optional>
#include <string>
#include <vector>

#include "control/NarrationSessions.h"
#include "frame/AudioChunk.h"
#include "frame/Json.h"

namespace sonra::CommandArguments {

// What the arguments of a command come to. Pure functions, any thread; an argument of another type
// counts as missing, and nothing fails.

/// The chunk that "play" stands for; its file belongs to the queue, whatever the sender says.
/// Absent without a file.
std::optional<AudioChunk> playedChunk(const Json& message);

/// The position of "scrub": any number will do, held between -1 and a million; live without one.
int scrubIndex(const Json& message);

/// The session of "attach".
AttachRequest attachRequest(const Json& message);

/// The addresses of "open".
std::vector<std::string> openedUrls(const Json& message);

}  // namespace sonra::CommandArguments
