#include "widgets/KaraokeText.h"

#include <gtest/gtest.h>

#include "widgets/Tokens.h"

namespace sonra {
namespace {

KaraokeText laidOut(const std::string& text, double width = 600) {
    KaraokeText result;
    result.setText(text);
    result.layOut(Tokens::font(22, QFont::Medium), width, 36);
    return result;
}

QRectF boxOf(const KaraokeText& text, std::size_t word) {
    const auto fragments = text.fragmentsOf(word);
    EXPECT_EQ(fragments.size(), 1U) << "word " << word;
    return fragments.empty() ? QRectF() : fragments.front().box;
}

qsizetype glyphsOf(const KaraokeText& text, std::size_t word) {
    qsizetype count = 0;
    for (const auto& fragment : text.fragmentsOf(word))
        for (const auto& run : fragment.glyphs) count += run.glyphIndexes().size();
    return count;
}

TEST(KaraokeText, WordsFollowEachOtherFromTheLeft) {
    const auto text = laidOut("the quick brown fox");
    ASSERT_EQ(text.words().size(), 4U);
    EXPECT_EQ(text.lineCount(), 1U);
    for (std::size_t word = 1; word < 4; ++word)
        EXPECT_GT(boxOf(text, word).left(), boxOf(text, word - 1).right()) << word;
    EXPECT_EQ(glyphsOf(text, 1), 5);
}

TEST(KaraokeText, ArabicRunsFromTheRight) {
    const auto text = laidOut("نقلت حلقة الإعادة");
    ASSERT_EQ(text.words().size(), 3U);
    EXPECT_GT(boxOf(text, 0).right(), 595) << "a right-to-left paragraph begins at the right";
    for (std::size_t word = 1; word < 3; ++word)
        EXPECT_LT(boxOf(text, word).right(), boxOf(text, word - 1).left()) << word;
}

TEST(KaraokeText, LatinWordsWithinHebrewKeepTheirOwnOrder) {
    //                          0     1     2    3     4
    const auto text = laidOut("שלום עולם hello world תודה");
    ASSERT_EQ(text.words().size(), 5U);
    EXPECT_LT(boxOf(text, 2).right(), boxOf(text, 3).left()) << "hello stands left of world";
    EXPECT_LT(boxOf(text, 3).right(), boxOf(text, 1).left()) << "both left of the Hebrew before";
    EXPECT_LT(boxOf(text, 4).right(), boxOf(text, 2).left());
}

TEST(KaraokeText, HebrewWithinEnglishRunsBackward) {
    const auto text = laidOut("say שלום עולם now");
    EXPECT_LT(boxOf(text, 0).right(), boxOf(text, 2).left());
    EXPECT_LT(boxOf(text, 2).right(), boxOf(text, 1).left());
    EXPECT_LT(boxOf(text, 1).right(), boxOf(text, 3).left());
}

TEST(KaraokeText, ChineseBreaksWithinAWord) {
    const auto text = laidOut("我把重试循环移到了单独的函数里所有测试都通过了", 200);
    ASSERT_EQ(text.words().size(), 1U);
    EXPECT_GE(text.lineCount(), 2U);
    const auto fragments = text.fragmentsOf(0);
    EXPECT_EQ(fragments.size(), text.lineCount());
    EXPECT_EQ(glyphsOf(text, 0), 23);
    for (const auto& fragment : fragments) EXPECT_LE(fragment.box.right(), 201);
}

TEST(KaraokeText, ALongWordWrapsAndStaysOneWord) {
    const auto text = laidOut("see " + std::string(120, 'w') + " end", 300);
    ASSERT_EQ(text.words().size(), 3U);
    EXPECT_GT(text.fragmentsOf(1).size(), 3U);
    EXPECT_EQ(glyphsOf(text, 1), 120);
    for (const auto& fragment : text.fragmentsOf(1)) EXPECT_LE(fragment.box.right(), 301);
}

TEST(KaraokeText, EmojiBeforeAWordDoNotShiftIt) {
    const auto text = laidOut("go 🚀 👨‍👩‍👧‍👦 done");
    ASSERT_EQ(text.words().size(), 4U);
    EXPECT_EQ(glyphsOf(text, 3), 4) << "exactly the letters of 'done'";
    EXPECT_GT(boxOf(text, 1).width(), 8);
    EXPECT_GT(boxOf(text, 3).left(), boxOf(text, 2).right());
}

TEST(KaraokeText, BrokenBytesDoNotShiftTheWordsBehindThem) {
    const auto text = laidOut("a\xC3 b\xFF\xFE done");
    const auto last = text.words().size() - 1;
    EXPECT_EQ(text.words()[last].text, "done");
    EXPECT_EQ(glyphsOf(text, last), 4);
}

TEST(KaraokeText, LinesStandAtEvenDistancesWhateverTheScript) {
    const auto text = laidOut("Latin\n我把重试\nنقلت\n🚀🚀\nend");
    ASSERT_EQ(text.lineCount(), 5U);
    for (std::size_t line = 0; line < 5; ++line) {
        EXPECT_DOUBLE_EQ(text.lineTop(line), 36.0 * static_cast<double>(line));
        ASSERT_EQ(text.fragments(line).size(), 1U);
        EXPECT_NEAR(text.fragments(line)[0].baseline - text.lineTop(line),
                    text.fragments(0)[0].baseline, 0.01);
    }
    EXPECT_DOUBLE_EQ(text.contentHeight(), 180);
}

TEST(KaraokeText, EmptyTextsHaveNoLines) {
    for (const auto* blank : {"", "   ", "\n\n", " \n \t"}) {
        const auto text = laidOut(blank);
        EXPECT_TRUE(text.words().empty()) << blank;
        EXPECT_DOUBLE_EQ(text.contentHeight(), 0) << blank;
    }
}

TEST(KaraokeText, KnowsTheLineInWhichAWordBegins) {
    const auto text = laidOut("alpha beta gamma delta epsilon zeta eta theta", 160);
    ASSERT_GT(text.lineCount(), 2U);
    for (std::size_t word = 0; word < text.words().size(); ++word)
        EXPECT_DOUBLE_EQ(boxOf(text, word).top(), text.lineTop(text.lineOf(word))) << word;
}

}  // namespace
}  // namespace sonra
