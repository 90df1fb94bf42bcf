#include "search/LoweredOffsets.h"

#include <unicode/casemap.h>
#include <unicode/edits.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdint>

namespace sonra {
namespace {

struct Span {
    std::int32_t start = 0;
    std::int32_t end = 0;
};

/// How the text becomes lower case by the root locale's rules.
icu::Edits editsOf(const icu::UnicodeString& text) {
    constexpr std::int32_t greatestGrowth = 3;
    std::vector<char16_t> lowered(static_cast<std::size_t>(text.length() * greatestGrowth));
    icu::Edits edits;
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::toLower("", 0, text.getBuffer(), text.length(), lowered.data(),
                          static_cast<std::int32_t>(lowered.size()), &edits, status);
    return edits;
}

/// What became the unit at `offset`.
Span originOf(icu::Edits::Iterator& edits, std::int32_t offset) {
    UErrorCode status = U_ZERO_ERROR;
    if (!edits.findDestinationIndex(offset, status)) return {offset, offset + 1};
    if (edits.hasChange()) return {edits.sourceIndex(), edits.sourceIndex() + edits.oldLength()};
    const auto start = edits.sourceIndex() + offset - edits.destinationIndex();
    return {start, start + 1};
}

}  // namespace

std::vector<std::size_t> LoweredOffsets::inText(std::string_view text,
                                                const std::vector<int>& offsets) {
    const auto units = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    const auto edits = editsOf(units);
    auto iterator = edits.getFineIterator();
    std::vector<std::size_t> found;
    std::int32_t end = 0;  // of what has been found
    for (const int offset : offsets) {
        const auto origin = originOf(iterator, offset);
        std::int32_t at = std::max(end, units.getChar32Start(origin.start));
        for (end = std::max(end, units.getChar32Limit(origin.end)); at < end; ++at)
            found.push_back(static_cast<std::size_t>(at));
    }
    return found;
}

}  // namespace sonra
