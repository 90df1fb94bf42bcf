#pragma once

#include "frame/Json.h"

/// What lines of Codex mean for their neighbours. Pure functions, any thread.
namespace sonra::CodexLines {

/// True if the line parts messages from one another: whatever belongs to a message that was
/// reported before it has been written before it, too.
bool separates(const Json& line);

}  // namespace sonra::CodexLines
