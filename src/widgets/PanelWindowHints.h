#pragma once

#include <QMargins>
#include <QPoint>
#include <QRect>
#include <optional>

class QWidget;

namespace sonra {

/// What Qt has no words for about a floating window under X11. Main thread only; the window must
/// have been created. On every other platform these do nothing.
namespace PanelWindowHints {

/// Off the taskbar and the pager, above all, on every desktop. Hiding a window removes this: call
/// it before each showing.
void prepareToShow(const QWidget& window);
/// Window managers take the desktop itself only from a request of a shown window.
void claimAllDesktops(const QWidget& window);
/// The pointer goes to what lies behind where `region` (logical pixels, in the window) is not;
/// `shadow` is what the window is larger than it seems.
void setReach(const QWidget& window, const QRect& region, const QMargins& shadow);
/// Where the server has the window, in its own pixels; Qt's answer may lag.
std::optional<QPoint> serverPosition(const QWidget& window);

}  // namespace PanelWindowHints
}  // namespace sonra
