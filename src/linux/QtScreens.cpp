#include "linux/QtScreens.h"

#include <QGuiApplication>
#include <QScreen>

namespace sonra {
namespace {

std::optional<Rect> visibleFrame(const QScreen* screen) {
    if (!screen) return std::nullopt;
    const auto area = screen->availableGeometry();
    // Without any screen Qt keeps a placeholder of no size.
    if (area.isEmpty()) return std::nullopt;
    return Rect{{double(area.x()), double(area.y())},
                {double(area.width()), double(area.height())}};
}

double shownArea(const QScreen& screen, const QRectF& frame) {
    const auto shown = frame.intersected(screen.geometry());
    return shown.width() * shown.height();
}

}  // namespace

std::optional<Rect> QtScreens::mainVisibleFrame() const {
    return visibleFrame(QGuiApplication::primaryScreen());
}

std::optional<Rect> QtScreens::visibleFrameOf(const Rect& frame) const {
    const QRectF wanted(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height);
    const QScreen* best = nullptr;
    double most = 0;
    for (const auto* screen : QGuiApplication::screens()) {
        const double area = shownArea(*screen, wanted);
        if (area <= most) continue;
        best = screen;
        most = area;
    }
    return visibleFrame(best);
}

}  // namespace sonra
