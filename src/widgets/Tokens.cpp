#include "widgets/Tokens.h"

#include <QFontDatabase>
#include <QGuiApplication>

namespace sonra {
namespace {

QColor withAlpha(QColor color, double alpha) {
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

Tokens darkTokens() {
    const QColor text(0xF2, 0xF2, 0xF4);
    Tokens tokens;
    tokens.ground = withAlpha(QColor(20, 20, 24), .86);
    tokens.text = text;
    tokens.soft = withAlpha(text, .66);
    tokens.dim = withAlpha(text, .42);
    tokens.hairline = withAlpha(Qt::white, .09);
    tokens.fill = withAlpha(Qt::white, .07);
    tokens.hover = withAlpha(Qt::white, .12);
    tokens.sheen = withAlpha(Qt::white, .05);
    tokens.farShadow = withAlpha(Qt::black, .42);
    tokens.nearShadow = withAlpha(Qt::black, .30);
    tokens.live = QColor(0xFF, 0x5A, 0x52);
    tokens.glow = .62;
    tokens.spectrum = .34;
    return tokens;
}

Tokens lightTokens() {
    const QColor text(0x17, 0x18, 0x1B);
    Tokens tokens;
    tokens.ground = withAlpha(QColor(250, 250, 252), .92);
    tokens.text = text;
    tokens.soft = withAlpha(text, .66);
    tokens.dim = withAlpha(text, .42);
    tokens.hairline = withAlpha(Qt::black, .09);
    tokens.fill = withAlpha(Qt::black, .05);
    tokens.hover = withAlpha(Qt::black, .09);
    tokens.sheen = withAlpha(Qt::white, .7);
    tokens.farShadow = withAlpha(QColor(30, 30, 60), .22);
    tokens.nearShadow = withAlpha(QColor(30, 30, 60), .12);
    tokens.live = QColor(0xF0, 0x45, 0x3E);
    tokens.glow = .34;
    tokens.spectrum = .34;
    tokens.dark = false;
    return tokens;
}

}  // namespace

Tokens Tokens::of(const Look& look) {
    auto tokens = look.dark ? darkTokens() : lightTokens();
    if (!look.composited) tokens.ground = look.dark ? QColor(24, 24, 28) : QColor(250, 250, 252);
    if (look.highContrast) {
        tokens.ground = look.dark ? QColor(Qt::black) : QColor(Qt::white);
        tokens.text = look.dark ? QColor(Qt::white) : QColor(Qt::black);
        tokens.soft = tokens.text;
        tokens.dim = withAlpha(tokens.text, .66);
        tokens.hairline = tokens.text;
        tokens.sheen = Qt::transparent;
        tokens.spectrum = .2;
        tokens.glow = 0;
        tokens.underlinesActive = true;
    }
    return tokens;
}

QFont Tokens::font(double pixels, QFont::Weight weight) {
    static const bool hasInter = QFontDatabase::hasFamily("Inter");
    QFont font = QGuiApplication::font();
    if (hasInter) font.setFamilies({"Inter", font.family()});
    font.setPixelSize(qRound(pixels));
    font.setWeight(weight);
    // Glyphs keep their shapes and places while a word is emphasised.
    font.setHintingPreference(QFont::PreferNoHinting);
    return font;
}

}  // namespace sonra
