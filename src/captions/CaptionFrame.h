#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Geometry.h"

namespace sonra {

/// Where the caption window may stand. Pure functions, any thread.
namespace CaptionFrame {

inline constexpr Size minSize{420, 180};
/// What is taken for the visible frame where there is no screen.
inline constexpr Rect assumedScreen{{0, 0}, {1440, 900}};

/// `frame` made to fit into the visible frame of a screen, with a margin around it. The least size
/// wins where the screen is smaller, and then the top left corner is what can be seen.
Rect held(const Rect& frame, const Rect& visible);

/// Low and in the middle of the screen.
Rect standard(const Rect& visible);

/// The forms in which settings hold them: "{x, y}" and "{w, h}".
std::string text(const Point& point);
std::string text(const Size& size);
/// Absent for anything else, such as a figure that is no finite number.
std::optional<Point> pointFrom(std::string_view text);
std::optional<Size> sizeFrom(std::string_view text);

}  // namespace CaptionFrame
}  // namespace sonra
