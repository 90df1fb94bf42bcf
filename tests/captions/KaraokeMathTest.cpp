#include <gtest/gtest.h>

#include <limits>

#include "captions/KaraokeMath.h"

namespace sonra {
namespace {

using KaraokeMath::WordRole;

std::vector<std::string> wordsOf(std::string_view text) {
    std::vector<std::string> words;
    for (const auto& word : KaraokeMath::tokenize(text)) {
        EXPECT_EQ(static_cast<int>(words.size()), word.id);
        EXPECT_EQ(word.text, text.substr(word.range.begin, word.range.end - word.range.begin));
        words.push_back(word.text);
    }
    return words;
}

using Words = std::vector<std::string>;

TEST(KaraokeMath, TokenizesFiveWordsWithIdsInOrder) {
    EXPECT_EQ((Words{"the", "quick", "brown", "fox", "jumps"}),
              wordsOf("the quick brown fox jumps"));
}

TEST(KaraokeMath, LeadingTrailingAndRepeatedWhiteSpaceAddsNoWord) {
    EXPECT_EQ((Words{"one", "two"}), wordsOf("  \t one \r\n\r\n   two\n"));
}

TEST(KaraokeMath, AnEmptyOrBlankTextHasNoWords) {
    EXPECT_EQ(Words{}, wordsOf(""));
    EXPECT_EQ(Words{}, wordsOf(" \t\r\n\u00A0\u2003\u2028\u3000\u0085"));
}

TEST(KaraokeMath, PunctuationStaysWithItsWord) {
    EXPECT_EQ((Words{"“Well,", "no”", "—", "he", "said."}), wordsOf("“Well, no” — he said."));
}

TEST(KaraokeMath, UnicodeBlanksPartWordsAndOthersDoNot) {
    EXPECT_EQ((Words{"a", "b", "c", "d"}), wordsOf("a\u00A0b\u3000c\u2028d"));
    // A zero-width space and a byte order mark aren't white space.
    EXPECT_EQ((Words{"a\u200Bb\uFEFFc"}), wordsOf("a\u200Bb\uFEFFc"));
}

TEST(KaraokeMath, RangesAreBytePositions) {
    const auto words = KaraokeMath::tokenize("žluť  kůň");
    ASSERT_EQ(2U, words.size());
    EXPECT_EQ((TextRange{0, 6}), words[0].range);
    EXPECT_EQ((TextRange{8, 13}), words[1].range);
}

TEST(KaraokeMath, ClustersAreNeverCut) {
    // A family joined by zero-width joiners, a flag, an e with a combining accent.
    EXPECT_EQ((Words{"👨‍👩‍👧", "🇨🇿", "e\u0301"}),
              wordsOf("👨‍👩‍👧 🇨🇿 e\u0301"));
    // A mark on a blank belongs to the blank.
    EXPECT_EQ((Words{"a", "b"}), wordsOf("a \u0301b"));
}

TEST(KaraokeMath, InvalidUtf8KeepsItsBytePositions) {
    const std::string text("\xFF\xFE one\xC3 \xE2\x82 two\x80", 15);
    const auto words = KaraokeMath::tokenize(text);
    ASSERT_EQ(4U, words.size());
    EXPECT_EQ((TextRange{0, 2}), words[0].range);
    EXPECT_EQ((TextRange{3, 7}), words[1].range);
    EXPECT_EQ("one\xC3", words[1].text);
    EXPECT_EQ((TextRange{8, 10}), words[2].range);
    EXPECT_EQ((TextRange{11, 15}), words[3].range);
}

TEST(KaraokeMath, TheFirstWordBeginsAfterItsShareOfTheSound) {
    EXPECT_EQ(-1, KaraokeMath::wordIndex(0, 5));
    EXPECT_EQ(-1, KaraokeMath::wordIndex(0.166, 5));
    EXPECT_EQ(0, KaraokeMath::wordIndex(0.167, 5));
    EXPECT_EQ(0, KaraokeMath::wordIndex(0.2, 5));
    EXPECT_EQ(2, KaraokeMath::wordIndex(0.5, 5));
    EXPECT_EQ(3, KaraokeMath::wordIndex(0.833, 5));
    EXPECT_EQ(4, KaraokeMath::wordIndex(0.834, 5));
    EXPECT_EQ(4, KaraokeMath::wordIndex(0.99, 5));
    EXPECT_EQ(4, KaraokeMath::wordIndex(1, 5));
}

TEST(KaraokeMath, ProgressOutOfRangeIsHeld) {
    EXPECT_EQ(-1, KaraokeMath::wordIndex(-3, 5));
    EXPECT_EQ(4, KaraokeMath::wordIndex(7, 5));
    EXPECT_EQ(-1, KaraokeMath::wordIndex(std::numeric_limits<double>::quiet_NaN(), 5));
    EXPECT_EQ(4, KaraokeMath::wordIndex(std::numeric_limits<double>::infinity(), 5));
    EXPECT_EQ(-1, KaraokeMath::wordIndex(1, 0));
}

TEST(KaraokeMath, RolesFollowTheActiveWord) {
    const auto words = KaraokeMath::tokenize("the quick brown");
    const auto active = words[1].range;
    EXPECT_EQ(WordRole::past, KaraokeMath::role(words[0], active, active.begin));
    EXPECT_EQ(WordRole::active, KaraokeMath::role(words[1], active, active.begin));
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[2], active, active.begin));
}

TEST(KaraokeMath, WithoutAnActiveWordThePastEndDecides) {
    const auto words = KaraokeMath::tokenize("the quick brown");
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[0], {}, {}));
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[0], {}, 0));
    EXPECT_EQ(WordRole::past, KaraokeMath::role(words[0], {}, 3));
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[1], {}, 3));
}

TEST(KaraokeMath, ARangeThatOnlyTouchesAWordDoesNotMakeItActive) {
    const auto word = KaraokeMath::tokenize("the quick")[1];
    EXPECT_EQ(WordRole::future, KaraokeMath::role(word, TextRange{0, 4}, 0));
    EXPECT_EQ(WordRole::active, KaraokeMath::role(word, TextRange{0, 5}, 0));
    EXPECT_EQ(WordRole::past, KaraokeMath::role(word, TextRange{9, 12}, 9));
}

TEST(KaraokeMath, AnEmptyRangeMakesNoWordActive) {
    const auto word = KaraokeMath::tokenize("the quick")[1];
    for (const std::size_t at : {0U, 3U, 4U, 6U, 9U, 12U}) {
        EXPECT_EQ(WordRole::future, KaraokeMath::role(word, TextRange{at, at}, {})) << at;
        EXPECT_EQ(WordRole::future, KaraokeMath::role(word, TextRange{at, at}, 8)) << at;
        EXPECT_EQ(WordRole::past, KaraokeMath::role(word, TextRange{at, at}, 9)) << at;
    }
}

TEST(KaraokeMath, WithAnActiveWordAndNothingPastTheOthersAreYetToCome) {
    const auto words = KaraokeMath::tokenize("the quick brown");
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[0], words[1].range, {}));
    EXPECT_EQ(WordRole::active, KaraokeMath::role(words[1], words[1].range, {}));
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[2], words[1].range, {}));
}

TEST(KaraokeMath, ARangeOverSeveralWordsMakesAllOfThemActive) {
    const auto words = KaraokeMath::tokenize("the quick brown fox");
    const TextRange active{5, 11};
    EXPECT_EQ(WordRole::past, KaraokeMath::role(words[0], active, active.begin));
    EXPECT_EQ(WordRole::active, KaraokeMath::role(words[1], active, active.begin));
    EXPECT_EQ(WordRole::active, KaraokeMath::role(words[2], active, active.begin));
    EXPECT_EQ(WordRole::future, KaraokeMath::role(words[3], active, active.begin));
}

TEST(KaraokeMath, ALoneWordBeginsInTheMiddle) {
    EXPECT_EQ(-1, KaraokeMath::wordIndex(0.49, 1));
    EXPECT_EQ(0, KaraokeMath::wordIndex(0.5, 1));
    EXPECT_EQ(0, KaraokeMath::wordIndex(1, 1));
}

TEST(KaraokeMath, ContentThatFitsDoesNotScroll) {
    EXPECT_EQ(0, KaraokeMath::scrollOffset(80, 100, 100, 0.45));
    EXPECT_EQ(0, KaraokeMath::scrollOffset(80, 100, 60, 0.45));
}

TEST(KaraokeMath, AnActiveLineAtTheTopDoesNotScroll) {
    EXPECT_EQ(0, KaraokeMath::scrollOffset(0, 100, 400, 0.45));
    EXPECT_EQ(0, KaraokeMath::scrollOffset(45, 100, 400, 0.45));
}

TEST(KaraokeMath, AnActiveLineInTheMiddleSlidesUpToTheBias) {
    EXPECT_DOUBLE_EQ(155, KaraokeMath::scrollOffset(200, 100, 400, 0.45));
}

TEST(KaraokeMath, NearTheEndTheScrollStopsAtTheLastLine) {
    EXPECT_DOUBLE_EQ(300, KaraokeMath::scrollOffset(390, 100, 400, 0.45));
}

TEST(KaraokeMath, AZeroVisibleHeightDoesNotScroll) {
    EXPECT_EQ(0, KaraokeMath::scrollOffset(200, 0, 400, 0.45));
    EXPECT_EQ(0, KaraokeMath::scrollOffset(200, -10, 400, 0.45));
}

}  // namespace
}  // namespace sonra
