#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Cuts a cleaned message into the pieces that are synthesised and played one by one: short enough
/// that speech starts soon, whole enough to sound natural. Pure functions, any thread, never fail.
namespace sonra::NarrationChunker {

/// Largest chunk in user-perceived characters, unless the text offers no place to cut.
inline constexpr std::size_t maxChunkChars = 500;

/// The only places where a long line is cut.
inline constexpr std::array<std::string_view, 4> sentenceEnders{".", "!", "?", "\u2026"};

/// Every run of line feeds is a cut, since each line of a reply is a spoken unit. A line of up to
/// maxChunkChars stays whole; a longer one is cut behind the last sentence end within the limit,
/// and stays whole if there is none. No chunk is empty; white space alone yields none.
std::vector<std::string> split(std::string_view text);

}  // namespace sonra::NarrationChunker
