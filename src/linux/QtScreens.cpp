#include "linux/QtScreens.h"

#include <QGuiApplication>
#include <QScreen>

namespace sonra {

std::optional<Rect> QtScreens::mainVisibleFrame() const {
    const auto* screen = QGuiApplication::primaryScreen();
    if (!screen) return std::nullopt;
    const auto area = screen->availableGeometry();
    // Without any screen Qt keeps a placeholder of no size.
    if (area.isEmpty()) return std::nullopt;
    return Rect{{double(area.x()), double(area.y())},
                {double(area.width()), double(area.height())}};
}

}  // namespace sonra
