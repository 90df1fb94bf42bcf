#pragma once

#include <QMargins>
#include <QPainter>
#include <QPixmap>
#include <QRegion>

#include "widgets/Tokens.h"

namespace sonra {

/// The ground of a floating panel: glass with rounded corners, a hairline around and a shadow
/// beneath. Without a compositor it is opaque, casts no shadow, and the window must be cut to
/// `mask`. Main thread only. Corners and edges are made once for a look and a scale and stretched
/// to any size, so that painting a part costs as little as the part.
class PanelChrome {
  public:
    explicit PanelChrome(int radius = Tokens::panelRadius) : radius_(radius) {}

    void setLook(const Look& look);

    /// What the window must be larger than the panel.
    [[nodiscard]] QMargins margins() const;
    /// The panel's shape within a window of this size; only without a compositor.
    [[nodiscard]] QRegion mask(const QSize& window) const;
    [[nodiscard]] static QPainterPath outline(const QRectF& panel,
                                              double radius = Tokens::panelRadius);

    /// Replaces what is there; `dirty` is the part of the window that is asked for.
    void paint(QPainter& painter, const QRect& dirty, const QRect& window, double devicePixelRatio);

  private:
    void prepare(double devicePixelRatio);
    void paintShadow(QImage& image, const QRectF& panel, double blur, double drop,
                     const QColor& color) const;
    void paintGlass(QPainter& painter, const QRectF& panel) const;

    const int radius_;
    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    QPixmap patch_;  ///< the smallest panel, with its shadow
};

}  // namespace sonra
