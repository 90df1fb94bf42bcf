#include "widgets/RoundButton.h"

#include <QPainter>
#include <QPainterPath>
#include <cmath>

#include "widgets/Icons.h"

namespace sonra {

RoundButton::RoundButton(Kind kind, int diameter, QWidget* parent)
    : QAbstractButton(parent), kind_(kind), diameter_(diameter) {
    setFocusPolicy(Qt::NoFocus);
    setFixedSize(diameter, diameter);
    hovering_.setDuration(Tokens::hoverTime);
    connect(&hovering_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        warmth_ = value.toDouble();
        update();
    });
}

void RoundButton::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    icon_ = {};
    update();
}

void RoundButton::setSymbol(const QString& icon, const QString& name) {
    if (icon == symbol_) return;
    symbol_ = icon;
    icon_ = {};
    setToolTip(name);
    setAccessibleName(name);
    update();
}

bool RoundButton::hitButton(const QPoint& place) const {
    const auto away = QPointF(place) - QRectF(rect()).center();
    return std::hypot(away.x(), away.y()) <= diameter_ / 2.0 + 1;
}

void RoundButton::enterEvent(QEnterEvent* /*event*/) {
    warm(1);
}

void RoundButton::leaveEvent(QEvent* /*event*/) {
    warm(0);
}

void RoundButton::warm(double goal) {
    hovering_.stop();
    if (look_.reducedMotion) {
        warmth_ = goal;
        return update();
    }
    hovering_.setStartValue(warmth_);
    hovering_.setEndValue(goal);
    hovering_.start();
}

QColor RoundButton::ink() const {
    if (kind_ == Kind::accent) return accent_.ink;
    return kind_ == Kind::bare ? mixed(tokens_.dim, tokens_.text, warmth_) : tokens_.text;
}

void RoundButton::paintGround(QPainter& painter) const {
    const QRectF box = QRectF(rect()).adjusted(.5, .5, -.5, -.5);
    QPainterPath disc;
    disc.addEllipse(box);
    if (kind_ == Kind::accent) {
        painter.fillPath(disc, accent_.diagonal(box));
        // A lighter upper edge gives the disc some body.
        QPainterPath lower;
        lower.addEllipse(box.translated(0, 1));
        painter.fillPath(disc.subtracted(lower), QColor(255, 255, 255, 70));
        painter.fillPath(disc, QColor(255, 255, 255, static_cast<int>(34 * warmth_)));
    } else if (kind_ == Kind::quiet) {
        painter.fillPath(disc, mixed(tokens_.fill, tokens_.hover, warmth_));
    } else {
        auto ground = tokens_.hover;
        ground.setAlphaF(ground.alphaF() * static_cast<float>(warmth_));
        painter.fillPath(disc, ground);
    }
    if (isDown()) painter.fillPath(disc, QColor(0, 0, 0, tokens_.dark ? 60 : 26));
    if (look_.highContrast && kind_ != Kind::accent) {
        painter.setPen(QPen(tokens_.hairline, 1));
        painter.drawEllipse(box);
    }
}

void RoundButton::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    paintGround(painter);
    const double size = std::round(diameter_ * (kind_ == Kind::bare ? 0.64 : 0.5));
    const double scale = devicePixelRatioF();
    if (icon_.isNull() || icon_.devicePixelRatio() != scale)
        icon_ = Icons::pixmap(symbol_, size, Qt::black, scale);
    auto tintedIcon = icon_;
    QPainter tint(&tintedIcon);
    tint.setCompositionMode(QPainter::CompositionMode_SourceIn);
    tint.fillRect(QRectF(0, 0, size, size), ink());
    tint.end();
    painter.drawPixmap(QPointF((width() - size) / 2, (height() - size) / 2), tintedIcon);
}

}  // namespace sonra
