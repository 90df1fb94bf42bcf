#pragma once

#include <string>
#include <string_view>

#include "frame/Json.h"

/// What lines of Codex mean for their neighbours. Pure functions, any thread.
namespace sonra::CodexLines {

/// False if the undecoded line is no event of a reply.
bool mayBeEvent(std::string_view line);

/// False if the undecoded line is no reply, nor the first of a turn.
bool mayPair(std::string_view line);

/// False if the undecoded line doesn't begin a turn.
bool mayBeginTurn(std::string_view line);

/// True if the line parts messages from one another: whatever belongs to a message that was
/// reported before it has been written before it, too.
bool separates(const Json& line);

/// True if the line is the first of a turn, or the user's own words.
bool beginsTurn(const Json& line);

/// The id of the turn that a message belongs to, empty if its line doesn't say.
std::string turnOf(const Json& line);

/// True unless these ids of turns tell that they are two.
bool mayBeOneTurn(const std::string& a, const std::string& b);

}  // namespace sonra::CodexLines
