#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "search/SearchText.h"

namespace sonra {

/// One token of a query, made ready to be looked for in many fields: what `Scorer::match` says of a
/// field, but only the score, and many times faster. Immutable; any thread.
class FieldScan {
  public:
    static constexpr int noMatch = -1;

    /// `token` is in lower case and not empty.
    explicit FieldScan(std::string_view token);

    /// True if a field with these characters may hold the token.
    [[nodiscard]] bool mayMatch(std::uint64_t mask, std::size_t length) const {
        return (mask_ & ~mask) == 0 && units_.size() <= length;
    }
    /// No field gives more.
    [[nodiscard]] int highestScore() const { return highestScore_; }
    /// True if only ASCII is looked for, so that a field's bytes tell all.
    [[nodiscard]] bool isAscii() const { return isAscii_; }

    /// For a token in ASCII. Reads up to SearchText::padding bytes behind the field.
    [[nodiscard]] int scoreBytes(const unsigned char* field, std::size_t length) const;
    [[nodiscard]] int scoreUnits(std::u16string_view field) const;

  private:
    std::u16string units_;
    std::string bytes_;
    std::uint64_t mask_ = 0;
    bool isAscii_ = true;
    int highestScore_ = 0;
};

}  // namespace sonra
