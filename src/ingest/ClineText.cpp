#include "ingest/ClineText.h"

#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <array>
#include <charconv>
#include <cmath>

#include "frame/Text.h"

namespace sonra::ClineText {
namespace {

constexpr auto npos = std::string_view::npos;
constexpr int mostPasses = 5;
/// Below it every whole number has a double of its own, whatever the language.
constexpr double wholeLimit = 9007000000000000.0;

constexpr std::array<std::string_view, 11> dropTags{
    "thinking",        "execute_command", "read_file",          "write_to_file",
    "replace_in_file", "list_files",      "search_files",       "list_code_definition_names",
    "browser_action",  "use_mcp_tool",    "access_mcp_resource"};
constexpr std::array<std::string_view, 3> keepTags{"ask_followup_question", "attempt_completion",
                                                   "result"};

UChar32 characterAt(std::string_view text, std::size_t& at) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    UChar32 c = 0;
    U8_NEXT(bytes, at, text.size(), c);
    return c;
}

/// Where the name `tag`, in any case, ends if it stands at `at`; else npos. Two letters of ASCII
/// have further ones that differ from them in case only.
std::size_t nameEnd(std::string_view text, std::size_t at, std::string_view tag) {
    for (const char letter : tag) {
        if (at >= text.size()) return npos;
        const UChar32 c = u_foldCase(characterAt(text, at), U_FOLD_CASE_DEFAULT);
        if (c != static_cast<UChar32>(letter)) return npos;
    }
    return at;
}

/// True if the name that ends at `at` goes on there.
bool nameGoesOn(std::string_view text, std::size_t at) {
    if (at >= text.size()) return false;
    const UChar32 c = characterAt(text, at);
    if (c < 0) return false;
    const auto type = u_charType(c);
    return u_isUAlphabetic(c) != 0 || u_hasBinaryProperty(c, UCHAR_GRAPHEME_EXTEND) != 0 ||
           type == U_FORMAT_CHAR || type == U_DECIMAL_DIGIT_NUMBER ||
           type == U_CONNECTOR_PUNCTUATION || type == U_COMBINING_SPACING_MARK ||
           type == U_NON_SPACING_MARK || type == U_ENCLOSING_MARK;
}

struct Element {
    std::size_t begin;
    std::size_t contentBegin;
    std::size_t contentEnd;
    std::size_t end;
};

/// Where "</tag>" begins and ends, from `from` on; begins at npos if there is none.
std::pair<std::size_t, std::size_t> findClosing(std::string_view text, std::size_t from,
                                                std::string_view tag) {
    for (std::size_t at = from; (at = text.find("</", at)) != npos; ++at) {
        const std::size_t end = nameEnd(text, at + 2, tag);
        if (end != npos && end < text.size() && text[end] == '>') return {at, end + 1};
    }
    return {npos, npos};
}

/// The first element `tag` from `from` on; `begin` is npos if there is none.
Element findElement(std::string_view text, std::size_t from, std::string_view tag) {
    constexpr Element none{npos, 0, 0, 0};
    for (std::size_t at = from; (at = text.find('<', at)) != npos; ++at) {
        const std::size_t name = nameEnd(text, at + 1, tag);
        if (name == npos || nameGoesOn(text, name)) continue;
        const std::size_t bracket = text.find('>', name);
        if (bracket == npos) return none;
        // An element that opens later would need the same end.
        const auto [closing, end] = findClosing(text, bracket + 1, tag);
        if (closing == npos) return none;
        return {at, bracket + 1, closing, end};
    }
    return none;
}

std::string replaceElements(std::string text, std::string_view tag, bool keepContent) {
    auto found = findElement(text, 0, tag);
    if (found.begin == npos) return text;
    std::string result;
    std::size_t done = 0;
    for (; found.begin != npos; found = findElement(text, done, tag)) {
        result.append(text, done, found.begin - done).append(1, ' ');
        if (keepContent)
            result.append(text, found.contentBegin, found.contentEnd - found.contentBegin)
                .append(1, ' ');
        done = found.end;
    }
    return result.append(text, done);
}

std::string onePass(std::string text) {
    for (const auto tag : dropTags) text = replaceElements(std::move(text), tag, false);
    for (const auto tag : keepTags) text = replaceElements(std::move(text), tag, true);
    return text;
}

/// The shortest digits of a number that isn't 0, and the place of its decimal point among them.
struct Digits {
    std::string digits;
    int point;
};

Digits digitsOf(double number) {
    std::array<char, 40> buffer{};
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                   std::chars_format::scientific)
                         .ptr;
    const std::string_view written(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
    const std::size_t e = written.find('e');
    int exponent = 0;
    const char* sign = written.data() + e + 1;
    std::from_chars(*sign == '+' ? sign + 1 : sign, end, exponent);
    std::string digits(written.substr(0, e));
    std::erase(digits, '.');
    return {std::move(digits), exponent + 1};
}

std::string withExponent(const Digits& number) {
    std::string text = number.digits.substr(0, 1);
    if (number.digits.size() > 1) text += '.' + number.digits.substr(1);
    const int exponent = number.point - 1;
    return text + (exponent < 0 ? "e-" : "e+") + std::to_string(std::abs(exponent));
}

/// As JavaScript lays out the digits of a positive number.
std::string layOut(Digits number) {
    constexpr int longestWhole = 21;
    constexpr int mostZeros = 6;
    const auto count = static_cast<int>(number.digits.size());
    if (number.point > longestWhole || number.point <= -mostZeros) return withExponent(number);
    if (number.point <= 0)
        return "0." + std::string(static_cast<std::size_t>(-number.point), '0') + number.digits;
    if (number.point >= count)
        return number.digits + std::string(static_cast<std::size_t>(number.point - count), '0');
    return number.digits.insert(static_cast<std::size_t>(number.point), 1, '.');
}

}  // namespace

std::string stripToolUseXml(std::string text) {
    for (int pass = 0; pass < mostPasses; ++pass) {
        std::string stripped = onePass(text);
        if (stripped == text) break;
        text = std::move(stripped);
    }
    return text;
}

std::string collapseWhitespace(std::string_view text) {
    std::string collapsed;
    collapsed.reserve(text.size());
    bool wasSpace = false;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t begin = at;
        const bool isSpace = u_isUWhiteSpace(characterAt(text, at)) != 0;
        if (!isSpace) collapsed.append(text.substr(begin, at - begin));
        if (isSpace && !wasSpace) collapsed += ' ';
        wasSpace = isSpace;
    }
    return collapsed;
}

std::string spokenPart(std::string_view text) {
    const std::string stripped = stripToolUseXml(std::string(text::trimmed(text)));
    return std::string(text::trimmed(collapseWhitespace(stripped)));
}

std::string numberText(double number) {
    if (number == 0 || !std::isfinite(number)) return {};
    if (number == std::trunc(number) && std::abs(number) < wholeLimit)
        return std::to_string(static_cast<std::int64_t>(number));
    return (number < 0 ? "-" : "") + layOut(digitsOf(std::abs(number)));
}

}  // namespace sonra::ClineText
