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

}  // namespace

QString menuStyleSheet(const Look& look) {
    const auto tokens = Tokens::of(look);
    // Menus lie on anything: more opaque than a caption, which has few words.
    auto ground = tokens.ground;
    ground.setAlpha(255);
    return QStringLiteral(
               "QMenu { background: %1; color: %2; border: 1px solid %3; border-radius: %4px;"
               " padding: 5px; font-size: 13px; }"
               "QMenu::item { padding: 6px 24px 6px 10px; border-radius: %5px; }"
               "QMenu::item:selected { background: %6; }"
               "QMenu::item:disabled { color: %7; background: transparent; }"
               "QMenu::icon, QMenu::indicator { left: 10px; }"
               "QMenu::separator { height: 1px; background: %3; margin: 5px 9px; }")
        .arg(rgba(ground), rgba(tokens.text), rgba(tokens.hairline))
        .arg(look.composited ? 10 : 0)
        .arg(Tokens::chipRadius)
        .arg(rgba(tokens.hover), rgba(tokens.soft));
}

}  // namespace sonra
