#include "widgets/AgentDot.h"

#include <QPainter>
#include <QPixmap>

#include "frame/HarnessTheme.h"
#include "platform/StatusItem.h"
#include "widgets/Accent.h"

namespace sonra {
namespace {

/// Of a row's icon, in its own units.
constexpr double canvasSide = 16;
constexpr QRectF dotBox(3, 3, 10, 10);
constexpr QRectF activeBox(9, 9, 6, 6);
constexpr double cut = 1;
/// The green of the desktop's palette, GNOME's "green 3".
constexpr QColor activeGreen(0x33, 0xd1, 0x7a);

QPixmap drawn(const AgentDot& dot, int pixels) {
    QPixmap pixmap(pixels, pixels);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(pixels / canvasSide, pixels / canvasSide);
    painter.setPen(Qt::NoPen);
    const auto accent = Accent::of(HarnessTheme::current(dot.source), Tokens());
    painter.setBrush(accent.diagonal(dotBox));
    painter.drawEllipse(dotBox);
    if (!dot.isActive) return pixmap;
    // A gap around it sets it off on any ground.
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.drawEllipse(activeBox.adjusted(-cut, -cut, cut, cut));
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.setBrush(activeGreen);
    painter.drawEllipse(activeBox);
    return pixmap;
}

}  // namespace

QIcon AgentDot::icon() const {
    QIcon icon;
    for (const int pixels : {16, 22, 32, 48}) icon.addPixmap(drawn(*this, pixels));
    return icon;
}

std::optional<AgentDot> agentDotOf(const MenuRow& row) {
    std::optional<AgentDot> dot;
    bool isActive = false;
    for (const auto& piece : row.title) {
        if (piece.role == MenuText::Role::activeDot) isActive = true;
        if (piece.role == MenuText::Role::chip) dot = AgentDot{piece.source};
    }
    if (dot) dot->isActive = isActive;
    return dot;
}

}  // namespace sonra
