#pragma once

#include "platform/Screens.h"

namespace sonra::test {

/// One screen, or none, as the test says, and maybe a second one beside it.
class FakeScreens : public Screens {
  public:
    [[nodiscard]] std::optional<Rect> mainVisibleFrame() const override { return visible; }

    [[nodiscard]] std::optional<Rect> visibleFrameOf(const Rect& frame) const override {
        for (const auto& screen : {visible, second})
            if (screen && overlaps(*screen, frame)) return screen;
        return std::nullopt;
    }

    std::optional<Rect> visible = Rect{{0, 0}, {1440, 900}};
    std::optional<Rect> second;

  private:
    static bool overlaps(const Rect& a, const Rect& b) {
        return a.origin.x < b.origin.x + b.size.width && b.origin.x < a.origin.x + a.size.width &&
               a.origin.y < b.origin.y + b.size.height && b.origin.y < a.origin.y + a.size.height;
    }
};

}  // namespace sonra::test
