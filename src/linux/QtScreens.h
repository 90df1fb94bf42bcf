#pragma once

#include "platform/Screens.h"

namespace sonra {

/// The screens that Qt knows of; needs a QGuiApplication. Main thread only.
class QtScreens : public Screens {
  public:
    [[nodiscard]] std::optional<Rect> mainVisibleFrame() const override;
    [[nodiscard]] std::optional<Rect> visibleFrameOf(const Rect& frame) const override;
};

}  // namespace sonra
