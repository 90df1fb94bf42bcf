#pragma once

#include <QObject>

namespace sonra {

/// How the desktop wants its windows to look.
struct Look {
    bool dark = true;
    bool reducedMotion = false;
    bool highContrast = false;
    bool composited = true;  ///< windows may be translucent

    bool operator==(const Look&) const = default;
};

/// The look that windows follow. Main thread only; windows borrow it. On its own it keeps the look
/// it was given; FollowedLook keeps it up with the desktop.
class DesktopLook : public QObject {
    Q_OBJECT

  public:
    explicit DesktopLook(const Look& look) : look_(look) {}

    [[nodiscard]] const Look& look() const { return look_; }
    /// Tells of it only if it is another one.
    void set(const Look& look);

  Q_SIGNALS:
    void changed();

  private:
    Look look_;
};

}  // namespace sonra
