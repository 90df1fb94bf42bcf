#include "widgets/HairlineProgress.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>
#include <utility>

#include "widgets/PanelChrome.h"

namespace sonra {
namespace {

constexpr double thin = 3;
constexpr double thick = 7;

}  // namespace

HairlineProgress::HairlineProgress(QWidget* parent) : QWidget(parent) {
    setFocusPolicy(Qt::NoFocus);
    setMouseTracking(true);
    setAccessibleName(QStringLiteral("Position"));
    growing_.setDuration(Tokens::hoverTime);
    connect(&growing_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        growth_ = value.toDouble();
        update();
    });
}

void HairlineProgress::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    update();
}

double HairlineProgress::end() const {
    return width() * fraction_;
}

void HairlineProgress::setFraction(double fraction) {
    const double before = end();
    fraction_ = std::clamp(fraction, 0.0, 1.0);
    const double scale = devicePixelRatioF();
    if (std::round(before * scale) == std::round(end() * scale)) return;
    // The gradient spreads over the filled part: all of it shifts.
    const int right = static_cast<int>(std::ceil(std::max(before, end()))) + 8;
    const int top = height() - static_cast<int>(thick) - 6;
    update(QRect(0, top, right, height() - top));
}

void HairlineProgress::enterEvent(QEnterEvent* /*event*/) {
    grow(1);
}

void HairlineProgress::leaveEvent(QEvent* /*event*/) {
    grow(0);
}

void HairlineProgress::grow(double goal) {
    growing_.stop();
    if (look_.reducedMotion) {
        growth_ = goal;
        return update();
    }
    growing_.setStartValue(growth_);
    growing_.setEndValue(goal);
    growing_.start();
}

bool HairlineProgress::isCorner(double x) const {
    return x < corner || x >= width() - corner;
}

void HairlineProgress::mousePressEvent(QMouseEvent* event) {
    const double x = event->position().x();
    scrubbing_ = event->button() == Qt::LeftButton && !isCorner(x);
    if (!scrubbing_) return event->ignore();
    scrub(x);
}

void HairlineProgress::mouseMoveEvent(QMouseEvent* event) {
    const double x = event->position().x();
    if (scrubbing_) return scrub(x);
    if (!(event->buttons() & Qt::LeftButton)) showCursor(x);
    event->ignore();
}

void HairlineProgress::mouseReleaseEvent(QMouseEvent* event) {
    if (!std::exchange(scrubbing_, false)) event->ignore();
}

void HairlineProgress::showCursor(double x) {
    const auto shape = !isCorner(x)        ? Qt::PointingHandCursor
                       : x < width() / 2.0 ? Qt::SizeBDiagCursor
                                           : Qt::SizeFDiagCursor;
    if (cursor().shape() != shape) setCursor(shape);
}

void HairlineProgress::scrub(double x) {
    if (onScrub) onScrub(std::clamp(x / std::max(1, width()), 0.0, 1.0));
}

void HairlineProgress::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const double thickness = thin + (thick - thin) * growth_;
    const QRectF track(0, height() - thickness, width(), thickness);
    // The line follows the panel's rounded corners.
    const auto shape = PanelChrome::outline(
        QRectF(0, height() - 4 * Tokens::panelRadius, width(), 4 * Tokens::panelRadius));
    const auto cut = [&](const QRectF& part) {
        QPainterPath path;
        path.addRect(part);
        return path.intersected(shape);
    };
    painter.fillPath(cut(track), tokens_.hairline);
    if (end() <= 0) return;
    const QRectF filled(track.left(), track.top(), end(), thickness);
    QPainterPath bar;
    bar.addRect(filled.adjusted(0, 0, -std::min(end(), thickness / 2), 0));
    bar.addRoundedRect(filled, thickness / 2, thickness / 2);
    bar.setFillRule(Qt::WindingFill);
    painter.fillPath(bar.simplified().intersected(shape), accent_.across(filled));
    if (growth_ <= 0) return;
    const double knob = 5.5 * growth_;
    const double x = std::clamp(end(), knob + 6, width() - knob - 6);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tokens_.dark ? Qt::white : accent_.end);
    painter.drawEllipse(QPointF(x, height() - thickness / 2 - 2 * growth_), knob, knob);
}

}  // namespace sonra
