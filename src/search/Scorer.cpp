#include "search/Scorer.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <algorithm>

namespace sonra {
namespace {

icu::UnicodeString loweredUnits(std::string_view text) {
    auto units = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    return units.toLower(icu::Locale::getRoot());
}

std::u16string_view view(const icu::UnicodeString& units) {
    return {units.getBuffer(), static_cast<std::size_t>(units.length())};
}

}  // namespace

int Scorer::scoreOf(const std::vector<int>& indices, std::u16string_view field) {
    const int count = static_cast<int>(indices.size());
    int run = 0, longestRun = 0, wordStarts = 0;
    for (std::size_t i = 0; i < indices.size(); ++i) {
        run = i > 0 && indices[i] == indices[i - 1] + 1 ? run + 1 : 1;
        longestRun = std::max(longestRun, run);
        const auto at = static_cast<std::size_t>(indices[i]);
        if (at == 0 || isWordSeparator(field[at - 1])) ++wordStarts;
    }
    int score = count + wordStarts * wordStartBonus;
    if (longestRun >= 2) score += runBonus * (longestRun - 1);
    if (count > 0 && indices.front() == 0 && indices.back() == count - 1) score += prefixBonus;
    return score;
}

std::optional<Scorer::FieldMatch> Scorer::matchUnits(std::u16string_view token,
                                                     std::u16string_view field) {
    if (token.size() > field.size()) return std::nullopt;
    FieldMatch match;
    for (std::size_t at = 0; at < field.size() && match.matchedIndices.size() < token.size(); ++at)
        if (field[at] == token[match.matchedIndices.size()])
            match.matchedIndices.push_back(static_cast<int>(at));
    if (match.matchedIndices.size() < token.size()) return std::nullopt;
    match.score = scoreOf(match.matchedIndices, field);
    return match;
}

std::optional<Scorer::FieldMatch> Scorer::match(std::string_view token, std::string_view field) {
    const auto loweredToken = loweredUnits(token);
    const auto loweredField = loweredUnits(field);
    return matchUnits(view(loweredToken), view(loweredField));
}

}  // namespace sonra
