#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sonra {

/// Byte positions in a UTF-8 text, half-open.
struct TextRange {
    std::size_t begin = 0;
    std::size_t end = 0;

    bool operator==(const TextRange&) const = default;
};

/// A run of characters without white space; punctuation stays with its word.
struct KaraokeWord {
    int id = 0;  ///< position in the text, from 0
    std::string text;
    TextRange range;

    bool operator==(const KaraokeWord&) const = default;
};

/// What the caption computes from text and progress. Pure functions, any thread.
namespace KaraokeMath {

enum class WordRole { past, active, future };

/// Words of the text in order, by grapheme clusters.
std::vector<KaraokeWord> tokenize(std::string_view text);

/// The word that is being spoken at `progress` (0 to 1) of `wordCount` words; -1 before the first.
/// The sound carries no word times, so that progress maps to words by plain proportion.
int wordIndex(double progress, std::size_t wordCount);

WordRole role(const KaraokeWord& word, const std::optional<TextRange>& activeRange,
              std::optional<std::size_t> pastEndIndex);

/// How far the text must have scrolled so that the active line, `activeTop` below the text's top,
/// rests at the fraction `bias` of the visible height. All in logical pixels.
double scrollOffset(double activeTop, double visibleHeight, double contentHeight, double bias);

}  // namespace KaraokeMath
}  // namespace sonra
