#pragma once

#include <QDBusConnection>
#include <memory>
#include <string>
#include <vector>

#include "platform/StatusItem.h"
#include "widgets/DesktopLook.h"
#include "widgets/TrayHost.h"

class QSystemTrayIcon;

namespace sonra {

class TrayMenu;

/// The program's icon in the desktop's tray, with its menu: handed to the panel over the bus, or
/// drawn by Qt where the tray is X11's.
///
/// Main thread only; `look` must outlive it. It appears when the desktop can show it, with what it
/// was told until then. A desktop without a tray is told to the user once, in a notification;
/// without a display nothing at all happens.
class TrayItem : public QObject, public StatusItem {
    Q_OBJECT

  public:
    explicit TrayItem(DesktopLook& look,
                      const QDBusConnection& bus = QDBusConnection::sessionBus());
    ~TrayItem() override;

    void setIcon(Icon icon) override;
    void setToolTip(const std::string& toolTip) override;
    void setMenu(std::vector<MenuRow> rows) override;

  private:
    void appear(TrayHost::Kind kind);
    void tellMissing() const;
    void applyLook();
    void showIcon();
    void popUp();

    DesktopLook& look_;
    const QDBusConnection bus_;
    TrayHost host_;
    Icon icon_ = Icon::idle;
    QString toolTip_;
    std::vector<MenuRow> rows_;
    /// The menu that Qt draws: of an X11 tray, and where a panel hands a click on the icon back.
    std::unique_ptr<TrayMenu> ownMenu_;
    std::unique_ptr<TrayMenu> panelMenu_;  ///< absent for an X11 tray
    std::unique_ptr<QSystemTrayIcon> tray_;
};

}  // namespace sonra
