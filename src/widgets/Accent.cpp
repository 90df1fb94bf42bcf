#include "widgets/Accent.h"

#include <algorithm>
#include <cmath>

namespace sonra {
namespace {

constexpr double readable = 3.4;
constexpr double readableInHighContrast = 7;

QColor toColor(const Rgb& rgb) {
    return QColor::fromRgbF(static_cast<float>(rgb.red), static_cast<float>(rgb.green),
                            static_cast<float>(rgb.blue));
}

double linear(double channel) {
    return channel <= 0.04045 ? channel / 12.92 : std::pow((channel + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
    return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
           0.0722 * linear(color.blueF());
}

/// The colour nearest to `color` that stands out from the ground: darker on light ground with its
/// hue kept clear, paler on dark.
QColor legible(const QColor& color, const Tokens& tokens) {
    const QColor ground(tokens.ground.rgb());
    const double wanted = tokens.underlinesActive ? readableInHighContrast : readable;
    auto result = color;
    for (double step = 0; step < 1 && contrastRatio(result, ground) < wanted; step += 0.02) {
        if (tokens.dark) {
            result = mixed(color, Qt::white, step);
        } else {
            result = QColor::fromHsvF(
                color.hsvHueF(),
                std::min(1.F, color.hsvSaturationF() * static_cast<float>(1 + step)),
                color.valueF() * static_cast<float>(1 - step));
        }
    }
    return result;
}

QLinearGradient gradient(const QPointF& from, const QPointF& to, const Accent& accent) {
    QLinearGradient result(from, to);
    result.setColorAt(0, accent.start);
    result.setColorAt(1, accent.end);
    return result;
}

}  // namespace

double contrastRatio(const QColor& one, const QColor& other) {
    const double a = luminance(one);
    const double b = luminance(other);
    return (std::max(a, b) + 0.05) / (std::min(a, b) + 0.05);
}

QColor mixed(const QColor& from, const QColor& to, double share) {
    const auto t = static_cast<float>(std::clamp(share, 0.0, 1.0));
    const auto between = [t](float a, float b) { return a + (b - a) * t; };
    return QColor::fromRgbF(between(from.redF(), to.redF()), between(from.greenF(), to.greenF()),
                            between(from.blueF(), to.blueF()), between(from.alphaF(), to.alphaF()));
}

Accent Accent::of(const HarnessTheme& theme, const Tokens& tokens) {
    Accent accent;
    accent.start = toColor(theme.accentStart);
    accent.end = toColor(theme.accentEnd);
    accent.glow = toColor(theme.glowColor);
    accent.ink = toColor(theme.inkOnAccent);
    accent.textStart = legible(accent.start, tokens);
    accent.textEnd = legible(accent.end, tokens);
    return accent;
}

QLinearGradient Accent::across(const QRectF& box) const {
    return gradient(box.topLeft(), box.topRight(), *this);
}

QLinearGradient Accent::upward(const QRectF& box) const {
    return gradient(box.topLeft(), box.bottomLeft(), *this);
}

QLinearGradient Accent::diagonal(const QRectF& box) const {
    return gradient(box.topLeft(), box.bottomRight(), *this);
}

}  // namespace sonra
