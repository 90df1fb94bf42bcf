#include "widgets/SpectrumBackdrop.h"

#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <QTimerEvent>
#include <algorithm>
#include <cmath>

namespace sonra {
namespace {

/// Levels come every 80 ms while a voice speaks.
constexpr int stepTime = 80;
/// Twice a step is smooth enough for bars behind text, and leaves the processor alone.
constexpr int barFrameTime = 40;
constexpr double barGap = 6;
constexpr double radius = 3;
constexpr double capHeight = 2;
/// Between a bar's top and a cap that rests on it.
constexpr double capGap = 3;

double between(double from, double to, double share) {
    return from + (to - from) * share;
}

double levelAt(const std::vector<float>& levels, int index) {
    const auto at = static_cast<std::size_t>(index);
    return at < levels.size() ? std::clamp(static_cast<double>(levels[at]), 0.0, 1.0) : 0.0;
}

}  // namespace

SpectrumBackdrop::SpectrumBackdrop(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
}

void SpectrumBackdrop::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    picture_ = {};
    update();
}

void SpectrumBackdrop::setLevels(const std::vector<float>& levels,
                                 const std::vector<float>& peaks) {
    Bars goal(barCount);
    for (int i = 0; i < barCount; ++i) {
        auto& bar = goal[static_cast<std::size_t>(i)];
        bar.level = levelAt(levels, i);
        bar.peak = std::max(bar.level, levelAt(peaks, i));
    }
    if (goal == goal_) return;
    goal_ = std::move(goal);
    if (!isVisible() || look_.reducedMotion) {
        moving_.stop();
        return show(goal_);
    }
    from_ = shown_;
    since_.start();
    if (!moving_.isActive()) moving_.start(barFrameTime, Qt::PreciseTimer, this);
}

void SpectrumBackdrop::timerEvent(QTimerEvent* event) {
    if (event->timerId() != moving_.timerId()) return;
    const double share = std::min(1.0, static_cast<double>(since_.elapsed()) / stepTime);
    if (share >= 1) moving_.stop();
    move(share);
}

void SpectrumBackdrop::hideEvent(QHideEvent* /*event*/) {
    moving_.stop();
    shown_ = goal_;
}

void SpectrumBackdrop::move(double share) {
    Bars bars(barCount);
    for (std::size_t i = 0; i < bars.size(); ++i) {
        bars[i].level = between(from_[i].level, goal_[i].level, share);
        bars[i].peak = between(from_[i].peak, goal_[i].peak, share);
    }
    show(std::move(bars));
}

void SpectrumBackdrop::show(Bars bars) {
    QRegion changed;
    for (int i = 0; i < barCount; ++i) {
        const auto at = static_cast<std::size_t>(i);
        const auto before = extent(i, shown_[at]);
        const auto after = extent(i, bars[at]);
        if (bars[at] == shown_[at]) continue;
        // What stands below both tops looks as before.
        const double settled = top(std::min(bars[at].level, shown_[at].level)) + radius + 1;
        auto part = before | after;
        part.setBottom(std::min(part.bottom(), static_cast<int>(std::ceil(settled))));
        changed += part;
    }
    shown_ = std::move(bars);
    // One rectangle is copied faster than many are cut out.
    update(changed.boundingRect());
}

QRectF SpectrumBackdrop::column(int index) const {
    // Whole pixels, so that every bar has the same crisp sides; what is left over goes outside.
    const double scale = devicePixelRatioF();
    const double pitch = std::floor((width() + barGap) / barCount * scale) / scale;
    const double side = std::floor((width() + barGap - pitch * barCount) / 2 * scale) / scale;
    return {side + index * pitch, 0, pitch - barGap, static_cast<double>(height())};
}

double SpectrumBackdrop::top(double level) const {
    const double room = height() - capHeight - capGap;
    return height() - room * level;
}

QRect SpectrumBackdrop::extent(int index, const Bar& bar) const {
    auto box = column(index);
    box.setTop(std::min(top(bar.level), top(bar.peak) - capGap - capHeight));
    return box.toAlignedRect();
}

void SpectrumBackdrop::resizeEvent(QResizeEvent* /*event*/) {
    picture_ = {};
}

void SpectrumBackdrop::preparePicture() {
    const double scale = devicePixelRatioF();
    if (!picture_.isNull() && picture_.devicePixelRatio() == scale) return;
    const QRectF box(0, 0, column(0).width(), height());
    picture_ = QPixmap((box.size() * scale).toSize().expandedTo({1, 1}));
    picture_.setDevicePixelRatio(scale);
    picture_.fill(Qt::transparent);
    auto ink = accent_.upward(box);
    auto stops = ink.stops();
    for (auto& [place, color] : stops) {
        // Fainter toward the top, where the text is.
        const double strength = place < 0.5 ? 0.8 : 1;
        color.setAlphaF(static_cast<float>(tokens_.spectrum * strength));
    }
    ink.setStops(stops);
    QPainter painter(&picture_);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(ink);
    // The bar's own top is painted where it stands.
    painter.drawRoundedRect(box.adjusted(0, -2 * radius, 0, 0), radius, radius);
}

void SpectrumBackdrop::copy(QPainter& painter, int index, double from, double to) const {
    const auto box = column(index);
    const double scale = picture_.devicePixelRatio();
    from = std::round(from * scale) / scale;
    to = std::round(to * scale) / scale;
    painter.drawPixmap(QPointF(box.left(), from), picture_,
                       QRectF(0, from * scale, box.width() * scale, (to - from) * scale));
}

void SpectrumBackdrop::paintBar(QPainter& painter, int index) const {
    const auto& bar = shown_[static_cast<std::size_t>(index)];
    const auto box = column(index);
    const double barTop = top(bar.level);
    if (height() - barTop >= 1) {
        // Only the round top is drawn; the rest is a copy.
        const double shoulder = std::min(std::ceil(barTop + radius), box.bottom());
        QPainterPath head(QPointF(box.left(), shoulder));
        head.arcTo(box.left(), barTop, 2 * radius, 2 * radius, 180, -90);
        head.arcTo(box.right() - 2 * radius, barTop, 2 * radius, 2 * radius, 90, -90);
        head.lineTo(box.right(), shoulder);
        painter.setBrushOrigin(box.topLeft());
        painter.fillPath(head, QBrush(picture_));
        copy(painter, index, shoulder, box.bottom());
    }
    if (bar.peak * height() < 1) return;
    const double capTop = top(bar.peak) - capGap - capHeight;
    copy(painter, index, capTop, capTop + capHeight);
}

void SpectrumBackdrop::paintEvent(QPaintEvent* event) {
    preparePicture();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < barCount; ++i)
        if (event->region().intersects(column(i).toAlignedRect())) paintBar(painter, i);
}

}  // namespace sonra
