#pragma once

#include <QDir>

/// The pictures for docs/shots, drawn by the program's own windows on the platform without a
/// display. Main thread only, with an application. False if a picture couldn't be written, which is
/// said on standard error.
namespace sonra::shots {

bool drawCaptions(const QDir& folder);
bool drawMenus(const QDir& folder);
bool drawSearch(const QDir& folder);
bool drawTrayIcons(const QDir& folder);

}  // namespace sonra::shots
