#pragma once

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>
#include <vector>

#include "widgets/Accent.h"
#include "widgets/KaraokeText.h"

namespace sonra {

/// The word that is being spoken, in the agent's gradient with a glow behind it. It is drawn over
/// the very places of its glyphs in the text and made bolder by a line along their outlines, so
/// that nothing moves, however strong the emphasis. Main thread only; a value.
class WordEmphasis {
  public:
    WordEmphasis() = default;
    WordEmphasis(std::vector<KaraokeText::Fragment> fragments, const Accent& accent,
                 const Tokens& tokens, double devicePixelRatio);

    [[nodiscard]] bool isEmpty() const { return fragments_.empty(); }
    [[nodiscard]] bool covers(std::size_t word) const;
    /// All that `paint` may touch.
    [[nodiscard]] QRectF bounds() const { return bounds_; }

    /// `strength` 1 is the word as it is spoken, 0 as it stands in `rest`.
    void paintGlow(QPainter& painter, double strength) const;
    void paint(QPainter& painter, double strength, const QColor& rest) const;

  private:
    void makeGlow(double devicePixelRatio);
    void paintUnderline(QPainter& painter, double strength) const;

    std::vector<KaraokeText::Fragment> fragments_;
    std::vector<QGlyphRun> pictures_;  ///< glyphs without an outline, as of emoji
    QPainterPath outline_;
    QRectF box_;
    QRectF bounds_;
    Accent accent_;
    Tokens tokens_;
    QPixmap glow_;
    double boldness_ = 0;  ///< the line's width at full strength
};

}  // namespace sonra
