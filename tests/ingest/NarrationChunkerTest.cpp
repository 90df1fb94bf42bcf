#include "ingest/NarrationChunker.h"

#include <gtest/gtest.h>

#include <chrono>

#include "frame/Text.h"

namespace sonra {
namespace {

using Chunks = std::vector<std::string>;
using NarrationChunker::split;

std::string repeated(std::string_view unit, std::size_t count) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i) text += unit;
    return text;
}

const std::string fox = "The quick brown fox jumped over the lazy dog. ";

TEST(NarrationChunker, KeepsSentencesOfAShortLineTogether) {
    EXPECT_EQ(split("Hello world. This is a test."), Chunks{"Hello world. This is a test."});
}

TEST(NarrationChunker, CutsAtEveryLineFeed) {
    EXPECT_EQ(split("First line.\nSecond line.\nThird line."),
              (Chunks{"First line.", "Second line.", "Third line."}));
}

TEST(NarrationChunker, CutsAtABlankLine) {
    EXPECT_EQ(split("First paragraph.\n\nSecond paragraph."),
              (Chunks{"First paragraph.", "Second paragraph."}));
}

TEST(NarrationChunker, KeepsAbbreviationsAndVersionsInAShortLine) {
    const std::string text = "Version v1.2.3 was released. Use e.g. the latest build.";
    EXPECT_EQ(split(text), Chunks{text});
}

TEST(NarrationChunker, CutsALongLineBehindItsLastSentenceEndWithinTheLimit) {
    const auto chunks = split(repeated(fox, 12));
    ASSERT_EQ(chunks.size(), 2U);
    EXPECT_EQ(chunks[0].size(), 459U);
    EXPECT_TRUE(chunks[0].ends_with("dog."));
    EXPECT_EQ(chunks[1].size(), 91U);
    EXPECT_TRUE(chunks[1].starts_with("The") && chunks[1].ends_with("dog."));
}

TEST(NarrationChunker, LeavesALongLineWithoutSentenceEndWhole) {
    const std::string text(600, 'x');
    EXPECT_EQ(split(text), Chunks{text});
}

TEST(NarrationChunker, CutsOnlyAboveFiveHundredCharacters) {
    const std::string ender = std::string(299, 'x') + ".";
    EXPECT_EQ(split(std::string(500, 'x')).size(), 1U);
    EXPECT_EQ(split(ender + std::string(200, 'y')).size(), 1U);
    EXPECT_EQ(split(ender + std::string(201, 'y')), (Chunks{ender, std::string(201, 'y')}));
}

TEST(NarrationChunker, LooksForSentenceEndsOnlyWithinTheLimit) {
    const std::string at500 = std::string(499, 'x') + "!";
    EXPECT_EQ(split(at500 + "yyy"), (Chunks{at500, "yyy"}));
    const std::string at501 = std::string(500, 'x') + "!yyy";
    EXPECT_EQ(split(at501), Chunks{at501});
}

TEST(NarrationChunker, LeavesTheTailWholeWhenItHasNoSentenceEndWithinTheLimit) {
    const std::string head = "Listen.";
    const std::string tail = std::string(600, 'x') + ". And more.";
    EXPECT_EQ(split(head + " " + tail), (Chunks{head, tail}));
}

TEST(NarrationChunker, CutsAtEachKindOfSentenceEnd) {
    for (const auto* ender : {".", "!", "?", "…"}) {
        const std::string head = std::string(300, 'x') + ender;
        EXPECT_EQ(split(head + " " + std::string(300, 'y')), (Chunks{head, std::string(300, 'y')}))
            << ender;
    }
}

TEST(NarrationChunker, BlankLinesWithACarriageReturnAreNoChunks) {
    const auto chunks = NarrationChunker::split("First.\r\n\r\nSecond.\n\v\n\u2028\nThird.");
    EXPECT_EQ(chunks, (std::vector<std::string>{"First.\r", "Second.", "Third."}));
}

TEST(NarrationChunker, YieldsNothingOfWhiteSpace) {
    for (const auto* text : {"", " ", "\n", " \n\n \n", "\t\r\n \u00a0\u2028"})
        EXPECT_TRUE(split(text).empty()) << text;
}

TEST(NarrationChunker, DropsALineOfOnlySpacesBetweenTwoLines) {
    EXPECT_EQ(split("One.\n   \t \nTwo."), (Chunks{"One.", "Two."}));
}

TEST(NarrationChunker, TrimsSpacesAndTabsAtBothEndsOfALine) {
    EXPECT_EQ(split(" \tOne.\u00a0\n\tTwo. "), (Chunks{"One.", "Two."}));
}

TEST(NarrationChunker, CountsCharactersAsPeopleSeeThem) {
    const std::string family = "👩‍👩‍👧";  // one character of eighteen bytes
    const std::string accented = "e\u0301";
    EXPECT_EQ(split("x." + repeated(family, 498)).size(), 1U);
    EXPECT_EQ(split("x." + repeated(family, 499)), (Chunks{"x.", repeated(family, 499)}));
    EXPECT_EQ(split("x." + repeated(accented, 498)).size(), 1U);
    EXPECT_EQ(split("x." + repeated(accented, 499)).size(), 2U);
}

TEST(NarrationChunker, CutsALineOfOnlyBigCharactersBehindTheRightOne) {
    const std::string sentence = "你好世界" + std::string("…");
    const auto chunks = split(repeated(sentence, 250));
    ASSERT_EQ(chunks.size(), 3U);
    EXPECT_EQ(chunks[0], repeated(sentence, 100));
    EXPECT_EQ(chunks[2], repeated(sentence, 50));
}

TEST(NarrationChunker, TakesAPointThatIsPartOfACharacterForNoSentenceEnd) {
    const std::string text = "x.\u0301" + std::string(600, 'y');
    EXPECT_EQ(split(text), Chunks{text});
    const std::string prepended = "x\u0600." + std::string(600, 'y');
    EXPECT_EQ(split(prepended), Chunks{prepended});
}

TEST(NarrationChunker, LosesNoByteThatIsNotUtf8) {
    const std::string unit = "\xFF\xC3. \x80";
    std::string joined;
    for (const auto& chunk : split(repeated(unit, 400))) joined += chunk;
    std::string expected = repeated(unit, 400);
    std::erase(joined, ' ');
    std::erase(expected, ' ');
    EXPECT_EQ(joined, expected);
}

TEST(NarrationChunker, CutsAVeryLongLineInLinearTime) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(split(repeated(fox, 91000)).size(), 9100U);
    EXPECT_GT(split(repeated("你好世界。 Ende. ", 200000)).size(), 3000U);
    EXPECT_GT(
        split(repeated(".\u0301", 1300000) + "\n" + repeated("." + std::string(499, 'x'), 8000))
            .size(),
        8000U);
    // Seconds even under a sanitizer; a quadratic walk takes hours.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

}  // namespace
}  // namespace sonra
