#include "widgets/PanelChrome.h"

#include <QPainterPath>
#include <cmath>

#include "widgets/Blur.h"

namespace sonra {
namespace {

// Beyond these distances the shadow is fainter than a step of the display's grey.
constexpr QMargins shadowRoom{40, 26, 40, 58};
/// How far from a corner the shadow along an edge is still bent.
constexpr int corner = 66;

}  // namespace

void PanelChrome::setLook(const Look& look) {
    look_ = look;
    tokens_ = Tokens::of(look);
    patch_ = {};
}

QMargins PanelChrome::margins() const {
    return look_.composited ? shadowRoom : QMargins();
}

QPainterPath PanelChrome::outline(const QRectF& panel, double radius) {
    QPainterPath path;
    path.addRoundedRect(panel, radius, radius);
    return path;
}

QRegion PanelChrome::mask(const QSize& window) const {
    const auto shape = outline(QRectF(QPointF(), QSizeF(window)), radius_).toFillPolygon();
    return QRegion(shape.toPolygon());
}

void PanelChrome::paintShadow(QImage& image, const QRectF& panel, double blur, double drop,
                              const QColor& color) const {
    const double scale = image.devicePixelRatio();
    QImage shape(image.size(), QImage::Format_Alpha8);
    shape.setDevicePixelRatio(scale);
    shape.fill(0);
    QPainter shapePainter(&shape);
    shapePainter.setRenderHint(QPainter::Antialiasing);
    shapePainter.fillPath(outline(panel.translated(0, drop), radius_), Qt::black);
    shapePainter.end();
    QPainter(&image).drawImage(QPointF(),
                               Blur::tinted(Blur::softened(shape, blur / 2 * scale), color));
}

void PanelChrome::paintGlass(QPainter& painter, const QRectF& panel) const {
    painter.setRenderHint(QPainter::Antialiasing);
    // The ground replaces the shadow under it, or the glass would be murky.
    painter.setCompositionMode(QPainter::CompositionMode_DestinationOut);
    painter.fillPath(outline(panel, radius_), Qt::black);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.fillPath(outline(panel, radius_), tokens_.ground);

    const double line = look_.highContrast ? 1.5 : 1;
    auto edge = outline(panel, radius_);
    auto inside = QPainterPath();
    const double radius = radius_ - line;
    inside.addRoundedRect(panel.adjusted(line, line, -line, -line), radius, radius);
    painter.fillPath(edge.subtracted(inside), tokens_.hairline);

    // Light from above: a second line that fades out where the sides begin.
    auto lower = QPainterPath();
    lower.addRoundedRect(panel.adjusted(line, line + 1, -line, -line), radius, radius);
    QLinearGradient light(panel.topLeft(), panel.topLeft() + QPointF(0, radius_));
    light.setColorAt(0, tokens_.sheen);
    light.setColorAt(1, Qt::transparent);
    painter.fillPath(inside.subtracted(lower), light);
}

void PanelChrome::prepare(double devicePixelRatio) {
    if (!patch_.isNull() && patch_.devicePixelRatio() == devicePixelRatio) return;
    const QRect panel(margins().left(), margins().top(), 2 * corner + 2, 2 * corner + 2);
    const QSize size = panel.marginsAdded(margins()).size();
    QImage image(QSize(static_cast<int>(std::ceil(size.width() * devicePixelRatio)),
                       static_cast<int>(std::ceil(size.height() * devicePixelRatio))),
                 QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    if (look_.composited) {
        paintShadow(image, panel, 48, 18, tokens_.farShadow);
        paintShadow(image, panel, 8, 2, tokens_.nearShadow);
    }
    QPainter painter(&image);
    paintGlass(painter, panel);
    painter.end();
    patch_ = QPixmap::fromImage(image);
}

void PanelChrome::paint(QPainter& painter, const QRect& dirty, const QRect& window,
                        double devicePixelRatio) {
    prepare(devicePixelRatio);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    const QMargins ends = margins() + corner;
    const QSizeF patch = patch_.deviceIndependentSize();
    const double targetX[] = {0, double(ends.left()), double(window.width() - ends.right()),
                              double(window.width())};
    const double targetY[] = {0, double(ends.top()), double(window.height() - ends.bottom()),
                              double(window.height())};
    const double sourceX[] = {0, double(ends.left()), patch.width() - ends.right(), patch.width()};
    const double sourceY[] = {0, double(ends.top()), patch.height() - ends.bottom(),
                              patch.height()};
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            const QRectF target(QPointF(targetX[column], targetY[row]),
                                QPointF(targetX[column + 1], targetY[row + 1]));
            const auto part = target & QRectF(dirty);
            if (part.isEmpty()) continue;
            if (row == 1 && column == 1) {
                painter.fillRect(part, tokens_.ground);
                continue;
            }
            const QPointF from(sourceX[column] * devicePixelRatio, sourceY[row] * devicePixelRatio);
            const QPointF to(sourceX[column + 1] * devicePixelRatio,
                             sourceY[row + 1] * devicePixelRatio);
            painter.drawPixmap(target, patch_, QRectF(from, to));
        }
    }
}

}  // namespace sonra
