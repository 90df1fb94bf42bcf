#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "frame/Json.h"

/// What OpenCode's messages and their parts say, wherever they are stored. Pure functions, any
/// thread.
namespace sonra::OpenCodePart {

/// True of a reply. A summary that the agent makes for itself, to go on with less, is none.
bool isReply(const Json& message);

/// When a message or a part was complete, in milliseconds since 1970; absent while it is being
/// written, and for parts that don't say.
std::optional<std::int64_t> completedAt(const Json& message);
std::optional<std::int64_t> endedAt(const Json& part);

/// The trimmed words of a part that are to be spoken: of a text that the assistant wrote and the
/// agent didn't add. Absent if there are none.
std::optional<std::string> words(const Json& part);

}  // namespace sonra::OpenCodePart
