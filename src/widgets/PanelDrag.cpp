#include "widgets/PanelDrag.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWidget>
#include <QWindow>
#include <algorithm>
#include <utility>

namespace sonra {
namespace {

constexpr int innerGrip = 5;
/// So near to two edges, a press takes both.
constexpr int cornerGrip = 12;

Qt::CursorShape cursorFor(Qt::Edges edges) {
    const bool across = edges & (Qt::LeftEdge | Qt::RightEdge);
    const bool along = edges & (Qt::TopEdge | Qt::BottomEdge);
    if (!along) return across ? Qt::SizeHorCursor : Qt::ArrowCursor;
    if (!across) return Qt::SizeVerCursor;
    return edges == (Qt::LeftEdge | Qt::TopEdge) || edges == (Qt::RightEdge | Qt::BottomEdge)
               ? Qt::SizeFDiagCursor
               : Qt::SizeBDiagCursor;
}

}  // namespace

PanelDrag::PanelDrag(QWidget& window, std::function<QRect()> panel, std::function<void()> began)
    : window_(window), panel_(std::move(panel)), began_(std::move(began)) {}

Qt::Edges PanelDrag::edgesAt(const QPoint& place) const {
    const QRect panel = panel_();
    const QPoint fromTop = place - panel.topLeft();
    const QPoint fromBottom = panel.bottomRight() - place;
    const auto within = [&](int reach) {
        Qt::Edges edges;
        if (fromTop.x() < reach) edges |= Qt::LeftEdge;
        if (fromBottom.x() < reach) edges |= Qt::RightEdge;
        if (fromTop.y() < reach) edges |= Qt::TopEdge;
        if (fromBottom.y() < reach) edges |= Qt::BottomEdge;
        return edges;
    };
    // A corner is round: its line runs well inside the square that it rounds off.
    const auto corner = within(cornerGrip);
    const bool both =
        cursorFor(corner) == Qt::SizeFDiagCursor || cursorFor(corner) == Qt::SizeBDiagCursor;
    return both ? corner : within(innerGrip);
}

void PanelDrag::press(const QMouseEvent& event) {
    if (event.button() != Qt::LeftButton) return;
    hold_ = Hold{event.globalPosition().toPoint(), window_.geometry(),
                 edgesAt(event.position().toPoint())};
}

void PanelDrag::move(const QMouseEvent& event) {
    const auto pointer = event.globalPosition().toPoint();
    if (!(event.buttons() & Qt::LeftButton)) {
        // The window manager keeps the release of a drag that it did.
        hold_.reset();
        return showCursor(edgesAt(event.position().toPoint()));
    }
    if (!hold_) return;
    if (hold_->follows) return follow(pointer);
    if ((pointer - hold_->pointer).manhattanLength() >= QApplication::startDragDistance())
        begin(pointer);
}

void PanelDrag::release() {
    hold_.reset();
}

void PanelDrag::begin(const QPoint& pointer) {
    began_();
    auto* handle = window_.windowHandle();
    const bool taken = handle && (hold_->edges ? handle->startSystemResize(hold_->edges)
                                               : handle->startSystemMove());
    if (taken) return hold_.reset();
    hold_->follows = true;
    follow(pointer);
}

void PanelDrag::follow(const QPoint& pointer) {
    const QPoint by = pointer - hold_->pointer;
    if (!hold_->edges) return window_.move(hold_->geometry.topLeft() + by);
    const QSize least = window_.minimumSize();
    auto box = hold_->geometry;
    if (hold_->edges & Qt::LeftEdge)
        box.setLeft(std::min(box.left() + by.x(), box.right() + 1 - least.width()));
    if (hold_->edges & Qt::TopEdge)
        box.setTop(std::min(box.top() + by.y(), box.bottom() + 1 - least.height()));
    if (hold_->edges & Qt::RightEdge)
        box.setRight(std::max(box.right() + by.x(), box.left() - 1 + least.width()));
    if (hold_->edges & Qt::BottomEdge)
        box.setBottom(std::max(box.bottom() + by.y(), box.top() - 1 + least.height()));
    window_.setGeometry(box);
}

void PanelDrag::showCursor(Qt::Edges edges) {
    const auto shape = cursorFor(edges);
    if (window_.cursor().shape() != shape) window_.setCursor(shape);
}

}  // namespace sonra
