#include "widgets/WordEmphasis.h"

#include <QRawFont>
#include <algorithm>
#include <cmath>

#include "widgets/Blur.h"

namespace sonra {
namespace {

/// From weight 500 to 600, as a part of the font's size.
constexpr double boldnessOfSize = 0.02;
constexpr double glowReach = 22;
constexpr double glowSigma = 8;

}  // namespace

WordEmphasis::WordEmphasis(std::vector<KaraokeText::Fragment> fragments, const Accent& accent,
                           const Tokens& tokens, double devicePixelRatio)
    : fragments_(std::move(fragments)), accent_(accent), tokens_(tokens) {
    outline_.setFillRule(Qt::WindingFill);
    for (const auto& fragment : fragments_) {
        box_ |= fragment.box;
        for (const auto& run : fragment.glyphs) {
            const auto font = run.rawFont();
            const auto glyphs = run.glyphIndexes();
            const auto positions = run.positions();
            boldness_ = std::max(boldness_, font.pixelSize() * boldnessOfSize);
            bool drawn = false;
            for (qsizetype i = 0; i < glyphs.size(); ++i) {
                const auto shape = font.pathForGlyph(glyphs[i]);
                drawn = drawn || !shape.isEmpty();
                outline_.addPath(shape.translated(positions[i]));
            }
            if (!drawn) pictures_.push_back(run);
        }
    }
    bounds_ = box_.adjusted(-glowReach, -glowReach, glowReach, glowReach);
    if (!isEmpty() && tokens_.glow > 0) makeGlow(devicePixelRatio);
}

bool WordEmphasis::covers(std::size_t word) const {
    return std::any_of(fragments_.begin(), fragments_.end(),
                       [word](const auto& fragment) { return fragment.word == word; });
}

void WordEmphasis::makeGlow(double devicePixelRatio) {
    // Half the resolution is plenty for something this soft.
    const double scale = devicePixelRatio / 2;
    QImage mask((bounds_.size() * scale).toSize().expandedTo({1, 1}), QImage::Format_Alpha8);
    mask.fill(0);
    QPainter painter(&mask);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(scale, scale);
    painter.translate(-bounds_.topLeft());
    painter.fillPath(outline_, Qt::black);
    painter.strokePath(outline_, QPen(Qt::black, 3 * boldness_));
    for (const auto& run : pictures_) painter.fillRect(run.boundingRect(), Qt::black);
    painter.end();
    glow_ = QPixmap::fromImage(Blur::tinted(Blur::softened(mask, glowSigma * scale), accent_.glow));
}

void WordEmphasis::paintGlow(QPainter& painter, double strength) const {
    if (glow_.isNull() || strength <= 0) return;
    painter.setOpacity(std::min(1.0, strength * tokens_.glow));
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawPixmap(bounds_, glow_, glow_.rect());
    painter.setOpacity(1);
}

void WordEmphasis::paint(QPainter& painter, double strength, const QColor& rest) const {
    const auto color = [&](const QColor& accent) { return mixed(rest, accent, strength); };
    QLinearGradient ink(box_.topLeft(), box_.topRight());
    ink.setColorAt(0, color(accent_.textStart));
    ink.setColorAt(1, color(accent_.textEnd));
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(outline_, ink);
    if (strength > 0) {
        const QPen pen(ink, boldness_ * strength, Qt::SolidLine, Qt::FlatCap, Qt::RoundJoin);
        painter.strokePath(outline_, pen);
    }
    painter.setOpacity(rest.alphaF() + (1 - rest.alphaF()) * strength);
    for (const auto& run : pictures_) painter.drawGlyphRun({}, run);
    painter.setOpacity(1);
    if (tokens_.underlinesActive) paintUnderline(painter, strength);
}

void WordEmphasis::paintUnderline(QPainter& painter, double strength) const {
    painter.setOpacity(strength);
    for (const auto& fragment : fragments_)
        painter.fillRect(
            QRectF(fragment.box.left(), fragment.baseline + 4, fragment.box.width(), 2),
            accent_.textStart);
    painter.setOpacity(1);
}

}  // namespace sonra
