// The tray icon in all its states, at the sizes that panels ask for, on a dark and a light panel.
#include <QPainter>
#include <array>
#include <string>

#include "shots/Canvas.h"
#include "shots/Shots.h"
#include "widgets/DesktopLook.h"
#include "widgets/SymbolicIcon.h"
#include "widgets/Tokens.h"

namespace {

constexpr std::array states{"idle",         "narrating", "paused",      "muted",
                            "synthesizing", "recording", "transcribing"};
constexpr std::array sizes{16, 22, 24, 32};
constexpr int trayMargin = 24;
constexpr int columnWidth = 88;
constexpr int labelHeight = 24;
constexpr int gap = 16;

int heightOfAll() {
    int height = labelHeight + gap;
    for (const int size : sizes) height += size + gap;
    return height;
}

void drawColumn(QPainter& painter, const QPoint& top, const std::string& state,
                const sonra::Tokens& tokens) {
    const auto name = QString::fromStdString("sonra-" + state + "-symbolic");
    const auto icon = sonra::symbolicIcon(name, name, tokens.text);
    int y = top.y() + gap;
    for (const int size : sizes) {
        icon.paint(&painter, QRect(top.x() + (columnWidth - size) / 2, y, size, size));
        y += size + gap;
    }
    painter.setFont(sonra::Tokens::font(12, QFont::Normal));
    painter.setPen(tokens.soft);
    painter.drawText(QRect(top.x(), y, columnWidth, labelHeight), Qt::AlignCenter,
                     QString::fromStdString(state));
}

bool draw(const QDir& folder, bool isDark) {
    const auto tokens = sonra::Tokens::of({.dark = isDark, .composited = false});
    const QSize panel(columnWidth * int(states.size()), heightOfAll());
    sonra::shots::Canvas canvas(panel + QSize(2 * trayMargin, 2 * trayMargin), isDark);
    QPainter painter(&canvas.image());
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tokens.ground);
    painter.drawRoundedRect(QRect(QPoint(trayMargin, trayMargin), panel), 10, 10);
    QPoint top(trayMargin, trayMargin);
    for (const std::string state : states) {
        drawColumn(painter, top, state, tokens);
        top.rx() += columnWidth;
    }
    painter.end();
    return canvas.save(folder, isDark ? "tray-icons" : "tray-icons-light");
}

}  // namespace

bool sonra::shots::drawTrayIcons(const QDir& folder) {
    return draw(folder, true) && draw(folder, false);
}
