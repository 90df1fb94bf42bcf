#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QObject>
#include <QTimer>

namespace sonra {

/// Finds out whether this desktop shows tray icons, and how. Qt looks only once, at a process's
/// first icon, and holds to what it found: so the first icon must wait for `ready`.
///
/// Main thread only. Asks without waiting. One that appears after `missing` is still noticed: a
/// panel at once, an X11 tray after a while.
class TrayHost : public QObject {
    Q_OBJECT

  public:
    enum class Kind {
        panel,    ///< takes the menu over the bus
        embedder  ///< an X11 tray: the icon is a small window, and Qt draws the menu
    };

    explicit TrayHost(const QDBusConnection& bus);

    void start();

  Q_SIGNALS:
    /// Once.
    void ready(sonra::TrayHost::Kind kind);
    /// At most once: after some seconds there was neither.
    void missing();

  private:
    Q_SLOT void expect();
    void ask();
    void giveUp();
    void settle(Kind kind);

    QDBusConnection bus_;
    QDBusServiceWatcher watcher_;
    QTimer settling_;
    QTimer patience_;
    bool isSettled_ = false;
};

}  // namespace sonra
