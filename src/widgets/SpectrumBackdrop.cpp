#include "widgets/SpectrumBackdrop.h"

#include <QPaintEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace sonra {
namespace {

/// Levels come every 80 ms while a voice speaks.
constexpr int stepTime = 80;
constexpr double gap = 6;
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
    moving_.setDuration(stepTime);
    moving_.setStartValue(0.0);
    moving_.setEndValue(1.0);
    connect(&moving_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { move(value.toDouble()); });
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
    moving_.stop();
    if (!isVisible() || look_.reducedMotion) return show(goal_);
    from_ = shown_;
    moving_.start();
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
    update(changed);
}

QRectF SpectrumBackdrop::column(int index) const {
    const double pitch = (width() + gap) / barCount;
    return {index * pitch, 0, pitch - gap, static_cast<double>(height())};
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
    painter.fillRect(box, ink);
}

void SpectrumBackdrop::paintBar(QPainter& painter, int index) const {
    const auto& bar = shown_[static_cast<std::size_t>(index)];
    const auto box = column(index);
    const double barTop = top(bar.level);
    if (height() - barTop >= 1) {
        painter.setBrush(QBrush(picture_));
        painter.setBrushOrigin(box.topLeft());
        painter.drawRoundedRect(QRectF(box.left(), barTop, box.width(), height() - barTop), radius,
                                radius);
    }
    if (bar.peak * height() < 1) return;
    const QRectF cap(box.left(), top(bar.peak) - capGap - capHeight, box.width(), capHeight);
    painter.setBrush(QBrush(picture_));
    painter.drawRoundedRect(cap, capHeight / 2, capHeight / 2);
}

void SpectrumBackdrop::paintEvent(QPaintEvent* event) {
    preparePicture();
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    for (int i = 0; i < barCount; ++i)
        if (event->region().intersects(column(i).toAlignedRect())) paintBar(painter, i);
}

}  // namespace sonra
