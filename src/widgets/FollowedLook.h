#pragma once

#include "widgets/Compositor.h"
#include "widgets/DesktopLook.h"
#include "widgets/PortalSettings.h"

namespace sonra {

/// The look of this desktop: what the settings portal says, the application's palette where it says
/// nothing about dark or light, and whether there is a compositor. Main thread only, one for all
/// windows.
class FollowedLook : public DesktopLook {
    Q_OBJECT

  public:
    explicit FollowedLook(const QDBusConnection& bus = QDBusConnection::sessionBus());

  private:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void refresh();

    PortalSettings portal_;
    Compositor compositor_;
};

}  // namespace sonra
