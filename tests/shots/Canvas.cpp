#include "shots/Canvas.h"

#include <QApplication>
#include <QLinearGradient>
#include <QPainter>
#include <cstdio>

namespace sonra::shots {

Canvas::Canvas(const QSize& size, bool isDark)
    : image_(size * qApp->devicePixelRatio(), QImage::Format_RGB32) {
    image_.setDevicePixelRatio(qApp->devicePixelRatio());
    QLinearGradient ramp(0, 0, size.width(), size.height());
    const QColor darks[] = {QColor(0x2C, 0x44, 0x5E), QColor(0x3F, 0x31, 0x58),
                            QColor(0x5C, 0x3A, 0x40)};
    const QColor lights[] = {QColor(0xCF, 0xE3, 0xF2), QColor(0xEC, 0xE0, 0xEC),
                             QColor(0xFA, 0xEA, 0xD8)};
    for (int i = 0; i < 3; ++i) ramp.setColorAt(i / 2.0, (isDark ? darks : lights)[i]);
    QPainter(&image_).fillRect(QRect(QPoint(), size), ramp);
}

void Canvas::put(const QPixmap& window, const QPoint& place, const QRegion& shape) {
    QPainter painter(&image_);
    const QRegion whole(QRect(QPoint(), window.deviceIndependentSize().toSize()));
    painter.setClipRegion((shape.isEmpty() ? whole : shape).translated(place));
    painter.drawPixmap(place, window);
}

bool Canvas::save(const QDir& folder, const std::string& name) const {
    const auto scale = image_.devicePixelRatio();
    const auto suffix = scale > 1 ? QStringLiteral("@%1x.png").arg(scale) : QStringLiteral(".png");
    const auto path = folder.filePath(QString::fromStdString(name) + suffix);
    if (image_.save(path)) return true;
    std::fprintf(stderr, "sonra_shots: %s could not be written\n", qPrintable(path));
    return false;
}

}  // namespace sonra::shots
