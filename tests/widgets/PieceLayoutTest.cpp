#include "widgets/PieceLayout.h"

#include <gtest/gtest.h>

#include "widgets/Tokens.h"

namespace sonra::test {
namespace {

constexpr double ample = 10'000;

PieceLayout laid(const QString& text, const std::vector<int>& emphasised = {},
                 double room = ample) {
    return {text,
            emphasised,
            {.font = Tokens::font(13), .color = Qt::black, .emphasis = Qt::red},
            room};
}

TEST(PieceLayout, ATextThatHasRoomIsWhole) {
    const auto line = laid("Move the retry loop");
    EXPECT_FALSE(line.isCut());
    EXPECT_EQ(line.text(), "Move the retry loop");
    EXPECT_GT(line.width(), 60);
}

TEST(PieceLayout, ATextWithoutRoomIsCutWhereItIsFull) {
    const QString text("Move the retry loop out of the tailer");
    for (double room = 30; room < 150; room += 7) {
        const auto line = laid(text, {}, room);
        ASSERT_TRUE(line.isCut());
        EXPECT_LE(line.width(), room);
        ASSERT_TRUE(line.text().endsWith(u'…'));
        const auto kept = line.text().size() - 1;
        EXPECT_EQ(line.text().left(kept), text.left(kept));
        EXPECT_GT(laid(text.left(kept + 1) + u'…').width(), room) << "one more would have fitted";
    }
}

TEST(PieceLayout, ARightToLeftTextLosesItsLogicalEnd) {
    const QString text = QStringLiteral("كتابة مقدمة المقال الجديد عن قراءة ردود البرامج");
    const auto line = laid(text, {}, 120);
    ASSERT_TRUE(line.isCut());
    EXPECT_TRUE(text.startsWith(line.text().chopped(1)));
    EXPECT_LE(line.width(), 120);
}

TEST(PieceLayout, ACharacterIsNeverCutInHalf) {
    const QString family = QStringLiteral("👨‍👩‍👧‍👦");
    const auto text = family.repeated(12);
    for (double room = 20; room < 120; room += 5) {
        const auto line = laid(text, {}, room);
        ASSERT_TRUE(line.isCut());
        EXPECT_EQ((line.text().size() - 1) % family.size(), 0);
    }
}

TEST(PieceLayout, WithoutAnyRoomOnlyTheSignOfTheCutStays) {
    EXPECT_EQ(laid("word", {}, 0).text(), "…");
    EXPECT_EQ(laid("", {}, 0).text(), "");
}

TEST(PieceLayout, EmphasisOfAPartCountsForTheWholeCharacter) {
    const QString text = QStringLiteral("m\u0308m");
    EXPECT_GT(laid(text, {0, 1}).width(), laid(text).width());
    EXPECT_DOUBLE_EQ(laid(text, {1}).width(), laid(text, {0, 1}).width());
    EXPECT_DOUBLE_EQ(laid(text, {0}).width(), laid(text, {0, 1}).width());
}

TEST(PieceLayout, EmphasisBehindTheEndIsIgnored) {
    EXPECT_DOUBLE_EQ(laid("mm", {2, 3, 400}).width(), laid("mm").width());
}

TEST(PieceLayout, LinesBecomeOne) {
    EXPECT_EQ(laid("a\nb\tc\u2028d").text(), "a b c d");
}

}  // namespace
}  // namespace sonra::test
