#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

/// What Markdown loses on its way to speech: ten rules, each the equal of a regular expression in
/// ICU's syntax, which stands beside its name.
///
/// They are written out as scanners because the expressions take quadratic time on unclosed marks;
/// a scanner looks at each byte a fixed number of times, whatever the text. Pure functions over
/// UTF-8, any thread, never fail; bytes that aren't UTF-8 are taken as they are.
namespace sonra::CleaningRules {

/// One match: the stretch [begin, end) of the text, and what takes its place, which may be part of
/// the text itself.
struct Match {
    std::size_t begin;
    std::size_t end;
    std::string_view replacement;
};

/// Each gives the first match that starts at or behind `from`, where the match before ended.
using Find = std::optional<Match> (*)(std::string_view text, std::size_t from);

std::optional<Match> reFencedCode(std::string_view text, std::size_t from);  ///< ```[\s\S]*?```
std::optional<Match> reInlineCode(std::string_view text, std::size_t from);  ///< `[^`]*`
std::optional<Match> reImage(std::string_view text, std::size_t from);  ///< !\[[^\]]*\]\([^)]*\)
std::optional<Match> reLink(std::string_view text, std::size_t from);   ///< \[([^\]]+)\]\([^)]*\)
std::optional<Match> reURL(std::string_view text, std::size_t from);    ///< https?://\S+
std::optional<Match> reBold(std::string_view text, std::size_t from);   ///< \*\*([^*]+)\*\*
std::optional<Match> reItalic(std::string_view text,
                              std::size_t from);  ///< (?<!\*)\*([^*\n]+)\*(?!\*)
std::optional<Match> reHeading(std::string_view text, std::size_t from);        ///< (?m)^#+\s+
std::optional<Match> reBullet(std::string_view text, std::size_t from);         ///< (?m)^[-*+]\s+
std::optional<Match> reExtraNewlines(std::string_view text, std::size_t from);  ///< \n{3,}

/// In the order in which they are applied. Fences are made of the mark of inline code, and images
/// contain the shape of a link, so the longer goes first; links are flattened before addresses go,
/// which would leave brackets dangling.
inline constexpr std::array<Find, 10> inOrder{reFencedCode, reInlineCode,   reImage,  reLink,
                                              reURL,        reBold,         reItalic, reHeading,
                                              reBullet,     reExtraNewlines};

}  // namespace sonra::CleaningRules
