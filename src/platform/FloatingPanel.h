#pragma once

#include <functional>

#include "platform/Geometry.h"

namespace sonra {

/// A window that floats over everything, is on every desktop and never takes the keyboard focus.
/// Main thread only; hidden when made; nothing here fails. Its owner sets the callbacks, which run
/// on the main thread and only for what the user did, not for what the owner asked for.
class FloatingPanel {
  public:
    std::function<void()> onFrameChanged;    ///< moved or resized
    std::function<void()> onCloseRequested;  ///< the close button

    virtual ~FloatingPanel() = default;

    virtual void setFrame(const Rect& frame, bool animated) = 0;
    [[nodiscard]] virtual Rect frame() const = 0;
    virtual void orderFront() = 0;
    virtual void orderOut() = 0;
    [[nodiscard]] virtual bool isVisible() const = 0;
    /// 0 to 1, of the whole window.
    virtual void setOpacity(double opacity) = 0;
};

}  // namespace sonra
