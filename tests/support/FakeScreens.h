#pragma once

#include "platform/Screens.h"

namespace sonra::test {

/// One screen, or none, as the test says.
class FakeScreens : public Screens {
  public:
    [[nodiscard]] std::optional<Rect> mainVisibleFrame() const override { return visible; }

    std::optional<Rect> visible = Rect{{0, 0}, {1440, 900}};
};

}  // namespace sonra::test
