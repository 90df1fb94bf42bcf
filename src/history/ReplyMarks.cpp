#include "history/ReplyMarks.h"

#include <algorithm>

namespace sonra {
namespace {

/// Bytes that are tested together, in a loop without a branch: the compiler makes vector
/// instructions of it, on every kind of machine.
constexpr std::size_t blockSize = 64;

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
    static bool isAt(std::string_view rest) {
        return rest.front() == assistant.front() && rest.starts_with(assistant);
    }
};

struct TextWord {
    static unsigned hint(const char* at) {
        return static_cast<unsigned>(at[0] == '"') & static_cast<unsigned>(at[1] == 't') &
               static_cast<unsigned>(at[2] == 'e') & static_cast<unsigned>(at[3] == 'x');
    }
    static bool isAt(std::string_view rest) {
        return rest.front() == textWord.front() && rest.starts_with(textWord);
    }
};

/// The escape of a character from U+0060 to U+007F, among them all letters of the words above.
struct EscapedLetter {
    static unsigned hint(const char* at) {
        return static_cast<unsigned>(at[0] == '\\') & static_cast<unsigned>(at[1] == 'u') &
               static_cast<unsigned>(at[2] == '0') & static_cast<unsigned>(at[3] == '0') &
               static_cast<unsigned>((at[4] | 1) == '7');
    }
    static bool isAt(std::string_view rest) {
        return rest.front() == escape.front() && rest.starts_with(escape) &&
               rest.size() > escape.size() && (rest[escape.size()] | 1) == '7';
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
[[gnu::always_inline]] inline bool blockHints(const char* at) {
    unsigned char found = 0;
    for (std::size_t i = 0; i < blockSize; ++i)
        found = static_cast<unsigned char>(found | Mark::hint(at + i));
    return found != 0;
}

/// The first block, from `from` on, that may hold a mark, or where the blocks end.
template <typename Mark>
[[gnu::always_inline]] inline std::size_t hintedBlock(std::string_view bytes, std::size_t from) {
    while (bytes.size() - from >= blockSize + ReplyMarks::longestMark &&
           !blockHints<Mark>(bytes.data() + from))
        from += blockSize;
    return from;
}

template <typename Mark>
std::size_t hintedBlockPlain(std::string_view bytes, std::size_t from) {
    return hintedBlock<Mark>(bytes, from);
}

#ifdef __x86_64__
/// The same with vectors twice as long, which not every machine has.
template <typename Mark>
[[gnu::target("avx2")]] std::size_t hintedBlockWide(std::string_view bytes, std::size_t from) {
    return hintedBlock<Mark>(bytes, from);
}
const bool isWide = __builtin_cpu_supports("avx2") != 0;
#endif

template <typename Mark>
std::size_t nextHintedBlock(std::string_view bytes, std::size_t from) {
#ifdef __x86_64__
    if (isWide) return hintedBlockWide<Mark>(bytes, from);
#endif
    return hintedBlockPlain<Mark>(bytes, from);
}

template <typename Mark>
std::size_t firstOf(std::string_view bytes, std::size_t from) {
    while (from < bytes.size()) {
        from = nextHintedBlock<Mark>(bytes, from);
        const bool isLast = bytes.size() - from < blockSize + ReplyMarks::longestMark;
        const std::size_t end = isLast ? bytes.size() : from + blockSize;
        for (; from < end; ++from)
            if (Mark::isAt(bytes.substr(from))) return from;
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
