#pragma once

#include <QColor>
#include <QFont>

#include "widgets/DesktopLook.h"

namespace sonra {

/// Colours, measures, type and motion that all windows share. Values only; main thread, since fonts
/// are looked up.
struct Tokens {
    QColor ground;  ///< of a floating panel; opaque without a compositor
    QColor text;
    QColor soft;
    QColor dim;
    QColor hairline;
    QColor fill;  ///< of quiet buttons and pills
    QColor hover;
    QColor sheen;  ///< the light that the upper edge of glass catches
    QColor farShadow;
    QColor nearShadow;
    QColor live;          ///< the dot of a running narration
    double glow = 0;      ///< opacity of the active word's glow
    double spectrum = 0;  ///< opacity of the bars behind text
    bool dark = true;
    bool underlinesActive = false;

    static Tokens of(const Look& look);

    static constexpr int panelRadius = 14;
    static constexpr int searchRadius = 12;
    static constexpr int rowRadius = 8;
    static constexpr int chipRadius = 6;
    static constexpr double captionLeading = 1.64;

    // Milliseconds.
    static constexpr int wordFade = 90;
    static constexpr int scrollTime = 240;
    static constexpr int hoverTime = 120;
    static constexpr int fadeIn = 150;
    static constexpr int fadeOut = 200;
    static constexpr int frameTime = 200;

    /// The interface font in logical pixels: Inter where it is installed, else the desktop's.
    static QFont font(double pixels, QFont::Weight weight = QFont::Normal);
};

}  // namespace sonra
