#include "search/Scorer.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using Match = Scorer::FieldMatch;

int scoreOf(std::string_view token, std::string_view field) {
    return Scorer::match(token, field).value().score;
}

TEST(Scorer, LettersInOrderMatch) {
    EXPECT_EQ(Scorer::match("ttso", "tts-offload"), (Match{24, {0, 1, 2, 4}}));
    EXPECT_FALSE(Scorer::match("zzz", "tts-offload"));
}

TEST(Scorer, TheWorkedExample) {
    EXPECT_EQ(Scorer::match("tts", "tts-offload"), (Match{29, {0, 1, 2}}));
}

TEST(Scorer, AnEmptyTokenMatchesWithoutAScore) {
    EXPECT_EQ(Scorer::match("", "anything"), (Match{0, {}}));
    EXPECT_EQ(Scorer::match("", ""), (Match{0, {}}));
}

TEST(Scorer, ATokenLongerThanTheFieldDoesntMatch) {
    EXPECT_FALSE(Scorer::match("abcd", "abc"));
    EXPECT_FALSE(Scorer::match("a", ""));
}

TEST(Scorer, CaseDoesntCount) {
    EXPECT_TRUE(Scorer::match("KOKORO", "kokoro warmup"));
    EXPECT_TRUE(Scorer::match("kokoro", "KOKORO Warmup"));
    EXPECT_TRUE(Scorer::match("\xC3\x84", "b\xC3\xA4r"));
}

TEST(Scorer, APrefixIsBetterThanASubstring) {
    EXPECT_GT(scoreOf("kok", "kokoro"), scoreOf("kor", "kokoro"));
    EXPECT_GT(scoreOf("a", "abc"), scoreOf("a", "b-abc"));
}

TEST(Scorer, AWordsBeginningIsBetterThanItsMiddle) {
    for (const auto* field : {"x b", "x-b", "x_b", "x/b", "x.b", "x\tb"})
        EXPECT_EQ(scoreOf("b", field), 1 + Scorer::wordStartBonus) << field;
    EXPECT_EQ(scoreOf("b", "x:b"), 1);
    EXPECT_EQ(scoreOf("b", "x\nb"), 1);
}

TEST(Scorer, ARunIsBetterThanScatteredLetters) {
    EXPECT_GT(scoreOf("abc", "xabcx"), scoreOf("abc", "xaxbxc"));
    EXPECT_EQ(scoreOf("abc", "xaxbxc"), 3);
    EXPECT_EQ(scoreOf("abcde", "xabxcdex"), 5 + 2 * Scorer::runBonus);
}

TEST(Scorer, TheFirstPlacesAreTaken) {
    EXPECT_EQ(Scorer::match("oo", "kokoro")->matchedIndices, (std::vector<int>{1, 3}));
}

TEST(Scorer, PlacesAreUtf16Offsets) {
    EXPECT_EQ(Scorer::match("b",
                            "\xF0\x9F\x98\x80\xC3\xA4"
                            "b")
                  ->matchedIndices,
              (std::vector<int>{3}));
    // In lower case the dotted capital I is two units.
    EXPECT_EQ(Scorer::match("b",
                            "\xC4\xB0"
                            "b")
                  ->matchedIndices,
              (std::vector<int>{2}));
}

}  // namespace
}  // namespace sonra
