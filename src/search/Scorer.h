#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace sonra {

/// How well a token is found in a field: its letters in order, taken from the left, with more for
/// letters side by side, for beginnings of words and for the field's own beginning. No instances;
/// any thread.
struct Scorer {
    static constexpr int runBonus = 4;
    static constexpr int wordStartBonus = 6;
    static constexpr int prefixBonus = 12;

    struct FieldMatch {
        int score = 0;
        std::vector<int> matchedIndices;  ///< UTF-16 offsets into the field's lower case, ascending

        bool operator==(const FieldMatch&) const = default;
    };

    /// Compares in lower case. Absent if the field doesn't hold the token.
    static std::optional<FieldMatch> match(std::string_view token, std::string_view field);
    /// As `match`, for what is in lower case and in UTF-16 already.
    static std::optional<FieldMatch> matchUnits(std::u16string_view token,
                                                std::u16string_view field);
    /// True if a word begins behind this unit.
    static constexpr bool isWordSeparator(char16_t unit) {
        return unit == u' ' || unit == u'-' || unit == u'_' || unit == u'/' || unit == u'.' ||
               unit == u'\t';
    }

  private:
    static int scoreOf(const std::vector<int>& indices, std::u16string_view field);
};

}  // namespace sonra
