#pragma once

#include <QColor>
#include <QLinearGradient>
#include <QRectF>

#include "frame/HarnessTheme.h"
#include "widgets/Tokens.h"

namespace sonra {

/// An agent's colours as windows paint them. A value; any thread.
struct Accent {
    QColor start;
    QColor end;
    QColor glow;
    QColor ink;        ///< on the accent
    QColor textStart;  ///< `start` and `end`, moved away from the ground until they read as text
    QColor textEnd;

    static Accent of(const HarnessTheme& theme, const Tokens& tokens);

    [[nodiscard]] QLinearGradient across(const QRectF& box) const;    ///< left to right
    [[nodiscard]] QLinearGradient upward(const QRectF& box) const;    ///< bottom to top
    [[nodiscard]] QLinearGradient diagonal(const QRectF& box) const;  ///< from the top left corner
};

/// Contrast of two opaque colours, 1 to 21.
double contrastRatio(const QColor& one, const QColor& other);
/// `from` at 0, `to` at 1.
QColor mixed(const QColor& from, const QColor& to, double share);

}  // namespace sonra
