#pragma once

#include <cstddef>
#include <string_view>

namespace sonra {

/// Tells most lines of a Claude Code transcript that can't be replies from those that can, without
/// decoding them: a reply says both "assistant" and "text" somewhere, as they stand or with an
/// escape for one of the letters. It errs only in passing lines that are no replies. Any thread.
struct ReplyMarks {
    /// No mark is longer: of a line that is looked at in pieces, this many bytes of each are to be
    /// looked at again with the next.
    static constexpr std::size_t longestMark = 16;

    bool saysAssistant = false;
    bool saysText = false;
    bool hasEscapedLetter = false;

    /// Looks at a line, or a piece of one.
    void add(std::string_view bytes);
    [[nodiscard]] bool mayBeReply() const {
        return hasEscapedLetter || (saysAssistant && saysText);
    }

    static bool mayBeReply(std::string_view line);
    /// The first place in `lines`, from `from` on, that lies in a line worth a closer look; npos if
    /// there is none.
    static std::size_t find(std::string_view lines, std::size_t from);
};

}  // namespace sonra
