#pragma once

#include <functional>
#include <vector>

#include "platform/FloatingPanel.h"

namespace sonra::test {

/// A panel on no screen. The test plays the user, who moves and closes it.
class FakePanel : public FloatingPanel {
  public:
    struct Move {
        Rect frame;
        bool animated = false;
        bool operator==(const Move&) const = default;
    };

    void setFrame(const Rect& frame, bool animated) override {
        frame_ = frame;
        moves.push_back({frame, animated});
    }
    [[nodiscard]] Rect frame() const override { return frame_; }
    void orderFront() override {
        visible_ = true;
        ++fronts;
        if (onOrderFront) onOrderFront();
    }
    void orderOut() override { visible_ = false; }
    [[nodiscard]] bool isVisible() const override { return visible_; }
    void setOpacity(double value) override { opacity = value; }

    void dragTo(const Rect& frame) {
        frame_ = frame;
        onFrameChanged();
    }
    void pressClose() const { onCloseRequested(); }

    std::vector<Move> moves;  ///< that the owner asked for
    int fronts = 0;
    std::function<void()> onOrderFront;  ///< what happens meanwhile elsewhere
    double opacity = -1;                 ///< below 0 until it is set

  private:
    Rect frame_;
    bool visible_ = false;
};

}  // namespace sonra::test
