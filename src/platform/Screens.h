#pragma once

#include <optional>

#include "platform/Geometry.h"

namespace sonra {

/// The screens of the desktop. Main thread only; never fails.
class Screens {
  public:
    virtual ~Screens() = default;

    /// What panels and docks leave free of the primary screen; absent without any screen.
    [[nodiscard]] virtual std::optional<Rect> mainVisibleFrame() const = 0;
    /// The same of the screen that shows most of a rectangle; absent if none shows any of it.
    [[nodiscard]] virtual std::optional<Rect> visibleFrameOf(const Rect& frame) const = 0;
};

}  // namespace sonra
