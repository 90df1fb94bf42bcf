#pragma once

#include <QBrush>
#include <QPixmap>
#include <QString>

namespace sonra {

/// The program's own symbolic icons: SVG on a 16 grid, painted in whatever colour the place asks
/// for. Main thread only. An unknown name gives an empty picture.
namespace Icons {

QPixmap pixmap(const QString& name, double size, const QBrush& ink, double devicePixelRatio);

}  // namespace Icons
}  // namespace sonra
