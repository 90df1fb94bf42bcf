#pragma once

#include <optional>
#include <string>

#include "frame/Json.h"

/// What a line of Gemini CLI says about the lines before it. Pure functions, any thread.
namespace sonra::GeminiChange {

/// The id of the first message that a "$rewindTo" takes back, together with all that follow it.
std::optional<std::string> rewindTarget(const Json& line);

/// The messages with which a "$set" replaces all before it; null if it sets something else.
const Json* replacement(const Json& line);

/// The id of the message that the line is; empty if it is none, or has no id.
std::string messageId(const Json& line);

}  // namespace sonra::GeminiChange
