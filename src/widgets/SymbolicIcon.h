#pragma once

#include <QColor>
#include <QIcon>

namespace sonra {

/// One of the program's symbolic icons in `ink`. It is handed on by `themeName` where the desktop's
/// icon theme has that, so that a panel can give it the panel's own colour, and as a picture
/// elsewhere. Main thread only.
QIcon symbolicIcon(const QString& themeName, const QString& ownName, const QColor& ink);

}  // namespace sonra
