#pragma once

#include <QWidget>

#include "widgets/Tokens.h"

namespace sonra {

/// A short text whose figures all take the same room, so that it doesn't twitch while it counts.
/// Main thread only.
class FiguresLabel : public QWidget {
  public:
    FiguresLabel(double fontSize, QFont::Weight weight, QWidget* parent);

    void setColor(const QColor& color);
    /// `name` is what assistive technology reads; the text itself if empty.
    void setText(const QString& text, const QString& name = {});
    [[nodiscard]] QString text() const { return text_; }
    [[nodiscard]] QSize sizeHint() const override;

    static double measure(const QString& text, const QFont& font);
    /// On the line that centres the text in `box`, from its left.
    static void draw(QPainter& painter, const QRectF& box, const QString& text, const QFont& font);

  private:
    void paintEvent(QPaintEvent* event) override;

    QString text_;
    QColor color_;
};

}  // namespace sonra
