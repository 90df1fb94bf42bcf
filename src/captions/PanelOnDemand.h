#pragma once

#include <functional>
#include <memory>

#include "platform/FloatingPanel.h"

namespace sonra {

/// A floating panel that is made when it is first shown. A window brings fonts and drawing with it,
/// which is most of what a start would wait for, and many a run never shows one.
///
/// Main thread only; owns the panel. Until there is one it keeps frame and opacity, and gives them
/// to it. `make` must return a panel; it is called once at most.
class PanelOnDemand : public FloatingPanel {
  public:
    using Make = std::function<std::unique_ptr<FloatingPanel>()>;

    explicit PanelOnDemand(Make make);

    void setFrame(const Rect& frame, bool animated) override;
    [[nodiscard]] Rect frame() const override;
    void orderFront() override;
    void orderOut() override;
    [[nodiscard]] bool isVisible() const override;
    void setOpacity(double opacity) override;

  private:
    void makePanel();

    const Make make_;
    std::unique_ptr<FloatingPanel> panel_;
    Rect frame_;
    double opacity_ = 1;
};

}  // namespace sonra
