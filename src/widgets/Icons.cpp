#include "widgets/Icons.h"

#include <QPainter>
#include <QSvgRenderer>
#include <cmath>

// A static library's resources are not linked on their own account. The macro wants to stand
// outside of all namespaces.
static void loadResources() {
    Q_INIT_RESOURCE(icons);
}

namespace sonra::Icons {

QPixmap pixmap(const QString& name, double size, const QBrush& ink, double devicePixelRatio) {
    static const bool loaded = (loadResources(), true);
    Q_UNUSED(loaded);
    QSvgRenderer svg(QStringLiteral(":/sonra/icons/%1.svg").arg(name));
    const int pixels = static_cast<int>(std::ceil(size * devicePixelRatio));
    QPixmap result(pixels, pixels);
    result.setDevicePixelRatio(devicePixelRatio);
    result.fill(Qt::transparent);
    QPainter painter(&result);
    const QRectF box(0, 0, size, size);
    svg.render(&painter, box);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(box, ink);
    return result;
}

}  // namespace sonra::Icons
