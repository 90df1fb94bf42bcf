#include "history/ReplyMarks.h"

#include <algorithm>

namespace sonra {
namespace {

/// Bytes that are tested together, in a loop without a branch: the compiler makes vector
/// instructions of it, on every kind of machine.
constexpr std::size_t blockSize = 256;

constexpr std::string_view assistant = "\"assistant\"";
constexpr std::string_view textWord = "\"text\"";
constexpr std::string_view escape = "\\u00";

// Each mark has a `hint`, 1 where the first bytes of the mark stand and perhaps elsewhere, and
// `isAt`, which is exact.

struct Assistant {
    static unsigned hint(const char* at) {
        return static_cast<unsigned>(at[0] == '"') & static_cast<unsigned>(at[1] == 'a') &
               static_cast<unsigned>(at[2] == 's') & static_cast<unsigned>(at[3] == 's');
    }
    static bool isAt(std::string_view rest) { return rest.starts_with(assistant); }
};

struct TextWord {
    static unsigned hint(const char* at) {
        return static_cast<unsigned>(at[0] == '"') & static_cast<unsigned>(at[1] == 't') &
               static_cast<unsigned>(at[2] == 'e') & static_cast<unsigned>(at[3] == 'x');
    }
    static bool isAt(std::string_view rest) { return rest.starts_with(textWord); }
};

/// The escape of a character from U+0060 to U+007F, among them all letters of the words above.
struct EscapedLetter {
    static unsigned hint(const char* at) {
        return static_cast<unsigned>(at[0] == '\\') & static_cast<unsigned>(at[1] == 'u') &
               static_cast<unsigned>(at[2] == '0') & static_cast<unsigned>(at[3] == '0') &
               static_cast<unsigned>((at[4] | 1) == '7');
    }
    static bool isAt(std::string_view rest) {
        return rest.starts_with(escape) && rest.size() > escape.size() &&
               (rest[escape.size()] | 1) == '7';
    }
};

struct TextWordOrEscapedLetter {
    static unsigned hint(const char* at) { return TextWord::hint(at) | EscapedLetter::hint(at); }
    static bool isAt(std::string_view rest) {
        return TextWord::isAt(rest) || EscapedLetter::isAt(rest);
    }
};

/// `at` has bytes for the whole block and a mark behind it.
template <typename Mark>
bool blockHints(const char* at) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < blockSize; ++i)
        found = static_cast<unsigned char>(found | Mark::hint(at + i));
    return found != 0;
}

template <typename Mark>
std::size_t firstOf(std::string_view bytes, std::size_t from) {
    while (from < bytes.size()) {
        const bool isWhole = bytes.size() - from >= blockSize + ReplyMarks::longestMark;
        const std::size_t end = isWhole ? from + blockSize : bytes.size();
        if (!isWhole || blockHints<Mark>(bytes.data() + from)) {
            for (; from < end; ++from)
                if (Mark::isAt(bytes.substr(from))) return from;
        }
        from = end;
    }
    return std::string_view::npos;
}

template <typename Mark>
bool has(std::string_view bytes) {
    return firstOf<Mark>(bytes, 0) != std::string_view::npos;
}

}  // namespace

void ReplyMarks::add(std::string_view bytes) {
    saysAssistant = saysAssistant || has<Assistant>(bytes);
    saysText = saysText || has<TextWord>(bytes);
    hasEscapedLetter = hasEscapedLetter || has<EscapedLetter>(bytes);
}

bool ReplyMarks::mayBeReply(std::string_view line) {
    return (has<Assistant>(line) && has<TextWord>(line)) || has<EscapedLetter>(line);
}

std::size_t ReplyMarks::find(std::string_view lines, std::size_t from) {
    return firstOf<TextWordOrEscapedLetter>(lines, from);
}

}  // namespace sonra
