#pragma once

#include <QString>

#include "platform/StatusItem.h"

namespace sonra {

/// Who draws a menu. The desktop's panel reads its labels by other rules than Qt: an underscore
/// marks a key there, and Qt turns the first ampersand into one.
enum class MenuDrawnBy { panel, qt };

/// A row's title as one line of plain text, what stands at its right edge behind a tab, so that
/// every character is shown as it is. What an image means stands there too, since nobody hears an
/// image. Pure.
QString menuLabel(const MenuRow& row, MenuDrawnBy drawer);

}  // namespace sonra
