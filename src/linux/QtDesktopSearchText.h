#pragma once

#include <QString>
#include <string>

namespace sonra::desktopSearch {

inline constexpr auto iconName = "dev.trelnivorn.sonra";

/// What a row of the desktop's results has room for: the beginning of a text, on one line.
QString oneLine(const std::string& text);

}  // namespace sonra::desktopSearch
