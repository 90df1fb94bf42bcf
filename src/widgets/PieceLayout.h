#pragma once

#include <QColor>
#include <QFont>
#include <QPointF>
#include <QString>
#include <memory>
#include <vector>

class QPainter;
class QTextLayout;

namespace sonra {

/// One line of text with emphasised characters, in its own writing direction, cut with "…" at its
/// logical end where it has no room. Main thread only. Emphasis of a part of a character counts for
/// the whole of it, and control characters show as blanks.
class PieceLayout {
  public:
    struct Style {
        QFont font;
        QColor color;
        QColor emphasis;
        bool underlinesEmphasis = false;
    };

    /// `emphasised` are UTF-16 offsets in `text`; those behind its end are ignored.
    PieceLayout(const QString& text, const std::vector<int>& emphasised, const Style& style,
                double room);
    ~PieceLayout();
    PieceLayout(PieceLayout&& other) noexcept;
    PieceLayout& operator=(PieceLayout&& other) noexcept;

    [[nodiscard]] double width() const { return width_; }
    [[nodiscard]] bool isCut() const { return isCut_; }
    /// The text as it is shown.
    [[nodiscard]] QString text() const;
    /// `baseline` is the left end of the line's baseline.
    void draw(QPainter& painter, const QPointF& baseline) const;

  private:
    std::unique_ptr<QTextLayout> layout_;
    QColor color_;
    double width_ = 0;
    bool isCut_ = false;
};

}  // namespace sonra
