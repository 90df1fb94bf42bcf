#include "ingest/CleaningRules.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

namespace sonra::CleaningRules {
namespace {

constexpr auto npos = std::string_view::npos;
constexpr std::string_view fence = "```";
constexpr std::string_view spokenCodeBlock = " code block. ";

bool hasAt(std::string_view text, std::size_t at, char c) {
    return at < text.size() && text[at] == c;
}

/// True where `^` matches: at the start, and behind each of the line terminators of Unicode.
bool isLineStart(std::string_view text, std::size_t at) {
    const std::string_view before = text.substr(0, at);
    if (before.empty()) return true;
    return (before.back() >= '\n' && before.back() <= '\r') || before.ends_with("\u0085") ||
           before.ends_with("\u2028") || before.ends_with("\u2029");
}

/// The end of the run of characters from `at` on that are white space, or that aren't.
std::size_t runEnd(std::string_view text, std::size_t at, bool ofSpace) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    while (at < text.size()) {
        std::size_t next = at;
        UChar32 c = 0;
        U8_NEXT(bytes, next, text.size(), c);
        if ((u_isUWhiteSpace(c) != 0) != ofSpace) break;
        at = next;
    }
    return at;
}

/// The white space that must follow a mark at the start of a line goes with it.
std::optional<Match> lineMark(std::string_view text, std::size_t begin, std::size_t markEnd) {
    const std::size_t end = runEnd(text, markEnd, true);
    if (end == markEnd) return std::nullopt;
    return Match{begin, end, {}};
}

bool isBullet(char c) {
    return c == '-' || c == '*' || c == '+';
}

}  // namespace

std::optional<Match> reFencedCode(std::string_view text, std::size_t from) {
    const std::size_t open = text.find(fence, from);
    if (open == npos) return std::nullopt;
    const std::size_t close = text.find(fence, open + fence.size());
    if (close == npos) return std::nullopt;
    return Match{open, close + fence.size(), spokenCodeBlock};
}

std::optional<Match> reInlineCode(std::string_view text, std::size_t from) {
    const std::size_t open = text.find('`', from);
    const std::size_t close = open == npos ? npos : text.find('`', open + 1);
    if (close == npos) return std::nullopt;
    return Match{open, close + 1, {}};
}

std::optional<Match> reImage(std::string_view text, std::size_t from) {
    for (std::size_t open = from; (open = text.find("![", open)) != npos;) {
        const std::size_t bracket = text.find(']', open + 2);
        if (bracket == npos) break;
        if (!hasAt(text, bracket + 1, '(')) {
            open = bracket;  // every image that opens before it ends at this bracket too
            continue;
        }
        const std::size_t close = text.find(')', bracket + 2);
        if (close == npos) break;
        return Match{open, close + 1, {}};
    }
    return std::nullopt;
}

std::optional<Match> reLink(std::string_view text, std::size_t from) {
    for (std::size_t open = from; (open = text.find('[', open)) != npos;) {
        const std::size_t bracket = text.find(']', open + 1);
        if (bracket == npos) break;
        if (bracket == open + 1 || !hasAt(text, bracket + 1, '(')) {
            open = bracket;  // every link that opens before it ends at this bracket too
            continue;
        }
        const std::size_t close = text.find(')', bracket + 2);
        if (close == npos) break;
        return Match{open, close + 1, text.substr(open + 1, bracket - open - 1)};
    }
    return std::nullopt;
}

std::optional<Match> reURL(std::string_view text, std::size_t from) {
    constexpr std::string_view separator = "://";
    for (std::size_t at = from; (at = text.find(separator, at)) != npos; ++at) {
        const std::string_view before = text.substr(from, at - from);
        const std::size_t scheme = before.ends_with("http") ? 4 : before.ends_with("https") ? 5 : 0;
        if (scheme == 0) continue;
        const std::size_t host = at + separator.size();
        const std::size_t end = runEnd(text, host, false);
        if (end > host) return Match{at - scheme, end, {}};
    }
    return std::nullopt;
}

std::optional<Match> reBold(std::string_view text, std::size_t from) {
    for (std::size_t open = from; (open = text.find("**", open)) != npos;) {
        const std::size_t close = text.find('*', open + 2);
        if (close == npos) break;
        if (close > open + 2 && hasAt(text, close + 1, '*'))
            return Match{open, close + 2, text.substr(open + 2, close - open - 2)};
        open = close == open + 2 ? open + 1 : close;
    }
    return std::nullopt;
}

std::optional<Match> reItalic(std::string_view text, std::size_t from) {
    for (std::size_t open = from; (open = text.find('*', open)) != npos;) {
        if (open > 0 && text[open - 1] == '*') {
            ++open;
            continue;
        }
        const std::size_t close = text.find_first_of("*\n", open + 1);
        if (close == npos) break;
        if (close > open + 1 && text[close] == '*' && !hasAt(text, close + 1, '*'))
            return Match{open, close + 1, text.substr(open + 1, close - open - 1)};
        open = close;
    }
    return std::nullopt;
}

std::optional<Match> reHeading(std::string_view text, std::size_t from) {
    for (std::size_t at = from; (at = text.find('#', at)) != npos;) {
        std::size_t end = at;
        while (hasAt(text, end, '#')) ++end;
        if (isLineStart(text, at)) {
            if (const auto match = lineMark(text, at, end)) return match;
        }
        at = end;
    }
    return std::nullopt;
}

std::optional<Match> reBullet(std::string_view text, std::size_t from) {
    for (std::size_t at = from; at < text.size(); ++at) {
        if (!isBullet(text[at]) || !isLineStart(text, at)) continue;
        if (const auto match = lineMark(text, at, at + 1)) return match;
    }
    return std::nullopt;
}

std::optional<Match> reExtraNewlines(std::string_view text, std::size_t from) {
    const std::size_t begin = text.find("\n\n\n", from);
    if (begin == npos) return std::nullopt;
    const std::size_t end = text.find_first_not_of('\n', begin);
    return Match{begin, end == npos ? text.size() : end, "\n\n"};
}

}  // namespace sonra::CleaningRules
