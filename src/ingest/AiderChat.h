#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ingest/HistoryMessage.h"

/// The chat history as aider writes it today: lines that start with "#### " are the user's, those
/// that start with "> " are what tools printed, and the rest is the reply. Whoever reads such a
/// file, forward or as a whole, finds the same replies in it. Pure functions, any thread; bytes
/// that aren't UTF-8 are taken as they come.
namespace sonra::AiderChat {

/// The user's first line is looked for in so many bytes. Of aider only a few lines of tools were
/// seen before it; behind more than this it isn't found.
inline constexpr std::size_t beginningSize = std::size_t{64} << 10;

/// True if a file that begins so is written this way, rather than with a heading for each turn's
/// time and each response. False until the user has said something.
bool isWrittenSo(std::string_view beginning);

/// What stands between two lines of the user or of a tool.
struct Reply {
    std::int64_t position;  ///< of its first byte in the file
    std::string text;       ///< trimmed, never empty
};

/// What is in a stretch of a history.
struct Stretch {
    std::vector<Reply> replies;
    std::size_t ended = 0;  ///< of them stand before a line of the user
    std::size_t turn = 0;   ///< where the last turn starts: behind the last line of the user
    std::size_t end = 0;  ///< of what was said, less a last line of a user or tool that has no end
};

/// Looks at `text`, which stands at `position`. Its first line may be the rest of one that begins
/// with `lineStart`. What aider prints of a failed edit goes over many lines of which only the
/// first is marked; it is a tool's as a whole.
Stretch read(std::string_view text, std::int64_t position, std::string_view lineStart = {});

/// How many of the bytes at the end of `text` are a line that may yet become the user's or a
/// tool's.
std::size_t undecidedTail(std::string_view text);

/// The message that a reply is. Its id says where it stands and how it starts, so that it doesn't
/// depend on where a read began and on how much of it was there.
HistoryMessage messageOf(const Reply& reply);

}  // namespace sonra::AiderChat
