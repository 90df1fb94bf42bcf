#pragma once

#include <QString>

#include "widgets/DesktopLook.h"

namespace sonra {

/// The style sheet that makes a menu drawn by Qt look like the program's other windows. Without a
/// compositor its corners are square. Main thread only.
QString menuStyleSheet(const Look& look);

}  // namespace sonra
