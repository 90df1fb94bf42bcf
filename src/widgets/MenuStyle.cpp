#include "widgets/MenuStyle.h"

#include "widgets/Tokens.h"

namespace sonra {
namespace {

QString rgba(const QColor& color) {
    return QStringLiteral("rgba(%1, %2, %3, %4)")
        .arg(color.red())
        .arg(color.green())
        .arg(color.blue())
        .arg(color.alpha());
}

/// The captions' typeface, as a style sheet names it: submenus inherit sheets, but no fonts.
QString families() {
    QStringList quoted;
    for (const auto& family : Tokens::font(13).families())
        quoted << u'"' + QString(family).remove(u'"') + u'"';
    return quoted.join(QStringLiteral(", "));
}

}  // namespace

QString menuStyleSheet(const Look& look) {
    const auto tokens = Tokens::of(look);
    const auto on = look.dark ? QStringLiteral("dark") : QStringLiteral("light");
    // In high contrast a frame shows what is chosen, and what can't be chosen dims.
    const auto chosen = look.highContrast ? QColor(Qt::transparent) : tokens.hover;
    const auto frame = look.highContrast ? tokens.text : QColor(Qt::transparent);
    const auto& disabled = look.highContrast ? tokens.dim : tokens.soft;
    // Menus lie on anything: more opaque than a caption, which has few words.
    auto ground = tokens.ground;
    ground.setAlpha(255);
    return QStringLiteral(
               "QMenu { background: %1; color: %2; border: 1px solid %3; border-radius: %4px;"
               " padding: 5px; menu-scrollable: 1; font-family: %10; font-size: 13px; }"
               "QMenu::item { padding: 5px 25px 5px 13px; border-radius: %5px;"
               " border: 1px solid transparent; }"
               "QMenu::item:selected { background: %6; border-color: %8; }"
               "QMenu::item:disabled { color: %7; background: transparent; }"
               "QMenu::icon { left: 9px; }"
               "QMenu::indicator { width: 14px; height: 14px; left: 9px; }"
               "QMenu::indicator:checked { image: url(:/sonra/icons/check-on-%9.svg); }"
               "QMenu::right-arrow { image: url(:/sonra/icons/submenu-on-%9.svg);"
               " width: 12px; height: 12px; right: 8px; }"
               "QMenu::separator { height: 1px; background: %3; margin: 5px 9px; }")
        .arg(rgba(ground), rgba(tokens.text), rgba(tokens.hairline))
        .arg(look.composited ? 10 : 0)
        .arg(Tokens::chipRadius)
        .arg(rgba(chosen), rgba(disabled), rgba(frame), on, families());
}

}  // namespace sonra
