#include "widgets/KaraokeFlow.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include "PanelFixture.h"

namespace sonra::test {
namespace {

constexpr auto flowText =
    "The reader goes backward in blocks and hands out complete lines only. A line that straddles "
    "two blocks is joined before it is parsed, so nothing is spoken twice and nothing is lost. "
    "Next comes the start of playback, where a quarter of a second goes missing.";

/// The flow of words alone, narrow enough to scroll.
class KaraokeFlowTest : public testing::Test {
  protected:
    KaraokeFlowTest() {
        flow.resize(500, 160);
        flow.setLook(look, accent);
        flow.setText(flowText);
        words = KaraokeMath::tokenize(flowText);
    }
    void activate(std::size_t word) {
        flow.setPosition(words[word].range, words[word].range.begin);
    }
    /// The part of the picture in which a word stands.
    QImage picture(std::size_t word) {
        const auto box = flow.text().fragmentsOf(word).front().box.translated(
            KaraokeFlow::sidePadding, KaraokeFlow::endPadding - flow.scroll());
        return flow.grab().toImage().copy(box.toAlignedRect());
    }
    /// The strongest colour in a picture on black.
    static QColor strongest(const QImage& image) {
        QColor best = Qt::black;
        for (int y = 0; y < image.height(); ++y)
            for (int x = 0; x < image.width(); ++x)
                if (image.pixelColor(x, y).value() > best.value()) best = image.pixelColor(x, y);
        return best;
    }

    Look look{.reducedMotion = true};
    Accent accent = Accent::of(HarnessTheme::current("codex"), Tokens::of(look));
    KaraokeFlow flow{nullptr};
    std::vector<KaraokeWord> words;
};

TEST_F(KaraokeFlowTest, WordsAreDimThenInTheAccentThenClear) {
    activate(4);
    flow.setAutoFillBackground(true);
    QPalette black;
    black.setColor(QPalette::Window, Qt::black);
    flow.setPalette(black);
    const auto past = strongest(picture(1));
    const auto active = strongest(picture(4));
    const auto future = strongest(picture(6));
    EXPECT_LT(past.value(), 120);
    EXPECT_LT(past.saturation(), 30);
    EXPECT_GT(active.saturation(), 90) << "in the agent's colours";
    EXPECT_GT(active.blue(), active.red());
    EXPECT_GT(future.value(), 220);
    EXPECT_LT(future.saturation(), 30);
}

TEST_F(KaraokeFlowTest, EmphasisMovesNoOtherWord) {
    const auto before = flow.text().fragmentsOf(6).front();
    const auto image = picture(7);
    activate(5);
    const auto after = flow.text().fragmentsOf(6).front();
    EXPECT_EQ(before.box, after.box);
    EXPECT_EQ(before.glyphs, after.glyphs);
    EXPECT_EQ(picture(7), image) << "a word two places on looks as before";
}

TEST_F(KaraokeFlowTest, TheActiveLineRestsALittleAboveTheMiddle) {
    flow.text();
    activate(0);
    EXPECT_DOUBLE_EQ(flow.scroll(), 0);
    const auto middle = words.size() / 2;
    activate(middle);
    const double visible = flow.height() - 2 * KaraokeFlow::endPadding;
    const double top = flow.text().lineTop(flow.text().lineOf(middle));
    EXPECT_NEAR(top - flow.scroll(), visible * 0.45, 1);
    activate(words.size() - 1);
    EXPECT_NEAR(flow.scroll(), flow.text().contentHeight() - visible, 1);
}

TEST_F(KaraokeFlowTest, ScrollingTakesItsTimeUnlessMotionIsUnwanted) {
    look.reducedMotion = false;
    flow.setLook(look, accent);
    flow.show();
    flow.text();
    const double visible = flow.height() - 2 * KaraokeFlow::endPadding;
    const double goal =
        std::round(flow.text().lineTop(flow.text().lineOf(words.size() / 2)) - visible * 0.45);
    // On a busy machine the whole way may pass between two looks, but not every time.
    bool onItsWay = false;
    for (int attempt = 0; attempt < 5 && !onItsWay; ++attempt) {
        activate(0);
        ASSERT_TRUE(pumpUntil([&] { return flow.scroll() == 0; }));
        QElapsedTimer since;
        since.start();
        activate(words.size() / 2);
        EXPECT_DOUBLE_EQ(flow.scroll(), 0) << "not at once";
        ASSERT_TRUE(pumpUntil([&] {
            onItsWay = onItsWay || (flow.scroll() > 0 && flow.scroll() < goal);
            return flow.scroll() == goal;
        }));
        EXPECT_GE(since.elapsed(), 230);
    }
    EXPECT_TRUE(onItsWay);
}

TEST_F(KaraokeFlowTest, ANewTextBeginsAtItsTop) {
    flow.text();
    activate(words.size() - 1);
    ASSERT_GT(flow.scroll(), 0);
    flow.setText("short");
    flow.text();
    EXPECT_DOUBLE_EQ(flow.scroll(), 0);
    EXPECT_TRUE(flow.hasWords());
    flow.setText("  ");
    EXPECT_FALSE(flow.hasWords());
}

TEST_F(KaraokeFlowTest, BetweenWordsTheTextStaysWhereItIs) {
    flow.text();
    const auto last = words.size() - 1;
    activate(last);
    const double there = flow.scroll();
    flow.setPosition(std::nullopt, words[last].range.begin);
    EXPECT_DOUBLE_EQ(flow.scroll(), there);
    flow.setPosition(std::nullopt, 0);
    EXPECT_DOUBLE_EQ(flow.scroll(), 0);
}

}  // namespace
}  // namespace sonra::test
