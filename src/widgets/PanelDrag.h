#pragma once

#include <QPoint>
#include <QRect>
#include <functional>
#include <optional>

class QMouseEvent;
class QWidget;

namespace sonra {

/// Moves a frameless window by its body and resizes it by its edges. Main thread only; belongs to
/// the window. The window manager does the work, once the pointer has moved far enough to mean it;
/// where there is none that can, the window follows the pointer by itself.
class PanelDrag {
  public:
    /// `panel` gives the visible part of the window; `began` is called when a drag begins.
    PanelDrag(QWidget& window, std::function<QRect()> panel, std::function<void()> began);

    void press(const QMouseEvent& event);
    void move(const QMouseEvent& event);
    void release();

    /// The edges that a press at this place of the window would take hold of.
    [[nodiscard]] Qt::Edges edgesAt(const QPoint& place) const;

    /// How far outside the visible panel an edge can still be gripped.
    static constexpr int outerGrip = 7;

  private:
    struct Hold {
        QPoint pointer;  ///< on the desktop
        QRect geometry;  ///< of the window
        Qt::Edges edges;
        bool follows = false;  ///< by itself
    };

    void begin(const QPoint& pointer);
    void follow(const QPoint& pointer);
    void showCursor(Qt::Edges edges);

    QWidget& window_;
    std::function<QRect()> panel_;
    std::function<void()> began_;
    std::optional<Hold> hold_;
};

}  // namespace sonra
