#include "frame/Text.h"

#include <unicode/brkiter.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>
#include <unicode/utext.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <memory>
#include <numeric>

namespace sonra::text {
namespace {

struct UTextCloser {
    void operator()(UText* handle) const { utext_close(handle); }
};

/// Grapheme boundaries of one thread; making an iterator costs far more than using it.
thread_local std::unique_ptr<icu::BreakIterator> threadsIterator;

icu::BreakIterator& characterIterator() {
    if (!threadsIterator) {
        UErrorCode status = U_ZERO_ERROR;
        threadsIterator.reset(
            icu::BreakIterator::createCharacterInstance(icu::Locale::getRoot(), status));
    }
    return *threadsIterator;
}

/// Length of the prefix in which every byte is a character of its own: ASCII, and not part of a CR
/// LF pair, nor followed by something that could join it.
std::size_t plainPrefix(std::string_view text, std::size_t limit) {
    std::size_t length = 0;
    while (length < text.size() && length <= limit &&
           static_cast<unsigned char>(text[length]) < 0x80 && text[length] != '\r')
        ++length;
    if (length == text.size() || length > limit) return std::min(length, limit);
    return length == 0 ? 0 : length - 1;
}

/// Calls `visit` with the end of each of the first `limit` characters of `text`.
template <typename Visit>
void walkCharacters(std::string_view text, std::size_t limit, Visit visit) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UText, UTextCloser> handle(
        utext_openUTF8(nullptr, text.data(), static_cast<int64_t>(text.size()), &status));
    auto& iterator = characterIterator();
    iterator.setText(handle.get(), status);
    iterator.first();
    for (std::size_t i = 0; i < limit; ++i) {
        const int32_t boundary = iterator.next();
        if (boundary == icu::BreakIterator::DONE) break;
        visit(static_cast<std::size_t>(boundary));
    }
}

/// Byte length and number of the first characters of `text`, at most `limit` of them.
struct Extent {
    std::size_t bytes = 0;
    std::size_t characters = 0;
};

Extent measure(std::string_view text, std::size_t limit) {
    const std::size_t plain = plainPrefix(text, limit);
    Extent extent{plain, plain};
    if (plain == text.size() || plain == limit) return extent;
    walkCharacters(text.substr(plain), limit - plain, [&](std::size_t end) {
        extent.bytes = plain + end;
        ++extent.characters;
    });
    return extent;
}

bool isTrimmable(UChar32 c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x85 || (U_GET_GC_MASK(c) & U_GC_Z_MASK) != 0;
}
bool isHorizontal(UChar32 c) {
    return c == 0x09 || u_charType(c) == U_SPACE_SEPARATOR;
}

template <typename Predicate>
std::string_view trim(std::string_view text, Predicate drop) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    auto end = static_cast<int32_t>(text.size());
    int32_t start = 0;
    while (start < end) {
        int32_t next = start;
        UChar32 c = 0;
        U8_NEXT(bytes, next, end, c);
        if (!drop(c)) break;
        start = next;
    }
    while (end > start) {
        int32_t previous = end;
        UChar32 c = 0;
        U8_PREV(bytes, start, previous, c);
        if (!drop(c)) break;
        end = previous;
    }
    return text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start));
}

}  // namespace

std::size_t characterCount(std::string_view text) {
    return measure(text, text.size()).characters;
}

std::size_t characterCountUpTo(std::string_view text, std::size_t limit) {
    return measure(text, limit).characters;
}

std::string_view prefix(std::string_view text, std::size_t count) {
    return text.substr(0, measure(text, count).bytes);
}

std::vector<std::size_t> characterEnds(std::string_view text, std::size_t limit) {
    const std::size_t plain = plainPrefix(text, limit);
    std::vector<std::size_t> ends(plain);
    std::iota(ends.begin(), ends.end(), std::size_t{1});
    if (plain == text.size() || plain == limit) return ends;
    walkCharacters(text.substr(plain), limit - plain,
                   [&](std::size_t end) { ends.push_back(plain + end); });
    return ends;
}

std::string_view trimmed(std::string_view text) {
    return trim(text, isTrimmable);
}

std::string_view trimmedHorizontally(std::string_view text) {
    return trim(text, isHorizontal);
}

std::string lowered(std::string_view text) {
    std::string result;
    icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
        .toLower(icu::Locale::getRoot())
        .toUTF8String(result);
    return result;
}

std::size_t utf16Length(std::string_view text) {
    return static_cast<std::size_t>(
        icu::UnicodeString::fromUTF8(
            icu::StringPiece(text.data(), static_cast<int32_t>(text.size())))
            .length());
}

bool isUtf8(std::string_view bytes) {
    const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
    const auto length = static_cast<int64_t>(bytes.size());
    int64_t at = 0;
    while (at < length) {
        UChar32 c = 0;
        U8_NEXT(data, at, length, c);
        if (c < 0) return false;
    }
    return true;
}

std::string decimal(double value) {
    std::array<char, 400> buffer{};
    const auto [end, error] = std::to_chars(buffer.data(), buffer.data() + buffer.size(), value,
                                            std::chars_format::fixed);
    std::string result(buffer.data(), end);
    if (std::isfinite(value) && result.find('.') == std::string::npos) result += ".0";
    return result;
}

}  // namespace sonra::text
