#pragma once

#include "platform/FloatingPanel.h"

namespace sonra {

/// The caption panel of a machine without a display: it keeps what it is told and paints nothing.
/// Main thread only.
class HiddenPanel : public FloatingPanel {
  public:
    void setFrame(const Rect& frame, bool /*animated*/) override { frame_ = frame; }
    [[nodiscard]] Rect frame() const override { return frame_; }
    void orderFront() override { visible_ = true; }
    void orderOut() override { visible_ = false; }
    [[nodiscard]] bool isVisible() const override { return visible_; }
    void setOpacity(double /*opacity*/) override {}

  private:
    Rect frame_;
    bool visible_ = false;
};

}  // namespace sonra
