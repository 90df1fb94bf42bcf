#include "search/FieldScan.h"

#include <unicode/unistr.h>

#include <algorithm>
#include <array>
#include <bit>

#include "search/Scorer.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace sonra {
namespace {

constexpr std::size_t blockSize = 64;
static_assert(blockSize <= SearchText::padding);

#if defined(__SSE2__)
/// 64 bytes, to be compared with one byte after the other.
class Block {
  public:
    explicit Block(const unsigned char* bytes)
        : first_(load(bytes)),
          second_(load(bytes + partSize)),
          third_(load(bytes + 2 * partSize)),
          fourth_(load(bytes + 3 * partSize)) {}
    /// A bit for each place that has this byte.
    [[nodiscard]] std::uint64_t find(char byte) const {
        const __m128i wanted = _mm_set1_epi8(byte);
        return places(first_, wanted) | places(second_, wanted) << partSize |
               places(third_, wanted) << 2 * partSize | places(fourth_, wanted) << 3 * partSize;
    }

  private:
    static constexpr std::size_t partSize = sizeof(__m128i);
    static_assert(4 * partSize == blockSize);

    static __m128i load(const unsigned char* bytes) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
    }
    static std::uint64_t places(__m128i part, __m128i wanted) {
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(part, wanted)));
    }

    __m128i first_;
    __m128i second_;
    __m128i third_;
    __m128i fourth_;
};
#else
class Block {
  public:
    explicit Block(const unsigned char* bytes) : bytes_(bytes) {}
    [[nodiscard]] std::uint64_t find(char byte) const {
        std::uint64_t found = 0;
        for (std::size_t i = 0; i < blockSize; ++i)
            found |= std::uint64_t{bytes_[i] == static_cast<unsigned char>(byte)} << i;
        return found;
    }

  private:
    const unsigned char* bytes_;
};
#endif

std::array<int, 256> makeWordStartScores() {
    std::array<int, 256> scores{};
    for (std::size_t byte = 0; byte < SearchText::other; ++byte)
        if (Scorer::isWordSeparator(static_cast<char16_t>(byte)))
            scores[byte] = Scorer::wordStartBonus;
    return scores;
}

/// What a letter behind this byte gets for its place.
const std::array<int, 256> wordStartScores = makeWordStartScores();

/// Adds up what the scorer says of places that come one after the other.
class Tally {
  public:
    void add(const unsigned char* field, std::size_t at) {
        if (count_ == 0) {
            first_ = at;
            run_ = 1;
        } else {
            run_ = at == last_ + 1 ? run_ + 1 : 1;
        }
        longestRun_ = std::max(longestRun_, run_);
        wordStarts_ += at == 0 ? Scorer::wordStartBonus : wordStartScores[field[at - 1]];
        last_ = at;
        ++count_;
    }
    [[nodiscard]] int score() const {
        const bool isPrefix = first_ == 0 && last_ + 1 == static_cast<std::size_t>(count_);
        return count_ + wordStarts_ + Scorer::runBonus * (longestRun_ - 1) +
               (isPrefix ? Scorer::prefixBonus : 0);
    }

  private:
    int count_ = 0;
    int run_ = 0;
    int longestRun_ = 0;
    int wordStarts_ = 0;
    std::size_t first_ = 0;
    std::size_t last_ = 0;
};

}  // namespace

FieldScan::FieldScan(std::string_view token) {
    const auto units = icu::UnicodeString::fromUTF8(
        icu::StringPiece(token.data(), static_cast<std::int32_t>(token.size())));
    units_.assign(units.getBuffer(), static_cast<std::size_t>(units.length()));
    bool hasSeparator = false;
    for (const char16_t unit : units_) {
        hasSeparator |= Scorer::isWordSeparator(unit);
        if (unit < SearchText::other) {
            bytes_ += static_cast<char>(unit);
            mask_ |= SearchText::maskOf(static_cast<unsigned char>(unit));
        } else {
            isAscii_ = false;
        }
    }
    // Behind a letter that isn't a separator no word begins: every beginning but the first then
    // breaks a run, which costs what a longer run would give.
    const int count = static_cast<int>(units_.size());
    const int wholeRun = count + Scorer::runBonus * (count - 1) + Scorer::prefixBonus;
    highestScore_ = hasSeparator ? wholeRun + count * Scorer::wordStartBonus
                                 : std::max(wholeRun + Scorer::wordStartBonus,
                                            count * (1 + Scorer::wordStartBonus));
}

int FieldScan::scoreBytes(const unsigned char* field, std::size_t length) const {
    Tally tally;
    auto wanted = bytes_.begin();
    for (std::size_t start = 0; start < length; start += blockSize) {
        const Block block(field + start);
        std::uint64_t places = length - start < blockSize
                                   ? (std::uint64_t{1} << (length - start)) - 1
                                   : ~std::uint64_t{0};
        while (const std::uint64_t found = block.find(*wanted) & places) {
            tally.add(field, start + static_cast<std::size_t>(std::countr_zero(found)));
            if (++wanted == bytes_.end()) return tally.score();
            places &= ~(found ^ (found - 1));  // those behind the one found
        }
    }
    return noMatch;
}

int FieldScan::scoreUnits(std::u16string_view field) const {
    const auto match = Scorer::matchUnits(units_, field);
    return match ? match->score : noMatch;
}

}  // namespace sonra
