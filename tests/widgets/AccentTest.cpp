#include "widgets/Accent.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

QColor over(const QColor& ground, const QColor& ink) {
    auto solid = ink;
    solid.setAlpha(255);
    return mixed(QColor(ground.rgb()), solid, ink.alphaF());
}

const Look looks[] = {{.dark = true},
                      {.dark = false},
                      {.dark = true, .composited = false},
                      {.dark = false, .composited = false},
                      {.dark = true, .highContrast = true},
                      {.dark = false, .highContrast = true}};

TEST(Tokens, TextStandsOutFromTheGround) {
    for (const auto& look : looks) {
        const auto tokens = Tokens::of(look);
        const QColor ground(tokens.ground.rgb());
        EXPECT_GE(contrastRatio(tokens.text, ground), 7);
        EXPECT_GE(contrastRatio(over(ground, tokens.soft), ground), 4.5);
    }
}

TEST(Tokens, TextOverTheTallestBarIsStillReadable) {
    for (const auto& look : looks) {
        const auto tokens = Tokens::of(look);
        for (const auto& theme : HarnessTheme::all()) {
            const auto accent = Accent::of(theme, tokens);
            for (auto color : {accent.start, accent.end}) {
                color.setAlphaF(static_cast<float>(tokens.spectrum));
                EXPECT_GE(contrastRatio(tokens.text, over(tokens.ground, color)), 4.5) << theme.id;
            }
        }
    }
}

TEST(Tokens, WithoutACompositorOrInHighContrastTheGroundIsOpaque) {
    EXPECT_LT(Tokens::of({}).ground.alpha(), 255);
    EXPECT_EQ(Tokens::of({.composited = false}).ground.alpha(), 255);
    EXPECT_EQ(Tokens::of({.highContrast = true}).ground.alpha(), 255);
    EXPECT_EQ(Tokens::of({.dark = false, .highContrast = true}).hairline, QColor(Qt::black));
}

TEST(Accent, TheActiveWordReadsOnEveryGround) {
    for (const auto& look : looks) {
        const auto tokens = Tokens::of(look);
        const QColor ground(tokens.ground.rgb());
        for (const auto& theme : HarnessTheme::all()) {
            const auto accent = Accent::of(theme, tokens);
            const double least = look.highContrast ? 7 : 3.4;
            EXPECT_GE(contrastRatio(accent.textStart, ground), least) << theme.id;
            EXPECT_GE(contrastRatio(accent.textEnd, ground), least) << theme.id;
        }
    }
}

TEST(Accent, AColourThatReadsIsLeftAlone) {
    const auto accent = Accent::of(HarnessTheme::current("claude-code"), Tokens::of({}));
    EXPECT_EQ(accent.textStart, accent.start);
    EXPECT_EQ(accent.textEnd, accent.end);
}

TEST(Accent, GradientsRunFromStartToEnd) {
    const auto accent = Accent::of(HarnessTheme::current("codex"), Tokens::of({}));
    const auto stops = accent.across({0, 0, 10, 4}).stops();
    EXPECT_EQ(stops.first().second, accent.start);
    EXPECT_EQ(stops.last().second, accent.end);
    EXPECT_DOUBLE_EQ(contrastRatio(Qt::black, Qt::white), 21);
}

}  // namespace
}  // namespace sonra
