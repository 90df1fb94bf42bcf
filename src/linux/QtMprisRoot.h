#pragma once

#include <QDBusAbstractAdaptor>
#include <QStringList>

namespace sonra {

/// The interface org.mpris.MediaPlayer2: who the player is. It has no window to raise, is ended by
/// other means, and takes no addresses. Main thread only; belongs to the exported object.
class QtMprisRoot : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ no CONSTANT)
    Q_PROPERTY(bool CanRaise READ no CONSTANT)
    Q_PROPERTY(bool HasTrackList READ no CONSTANT)
    Q_PROPERTY(QString Identity READ identity CONSTANT)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry CONSTANT)
    Q_PROPERTY(QStringList SupportedUriSchemes READ none CONSTANT)
    Q_PROPERTY(QStringList SupportedMimeTypes READ none CONSTANT)

  public:
    explicit QtMprisRoot(QObject* exported) : QDBusAbstractAdaptor(exported) {}

    [[nodiscard]] bool no() const { return false; }
    [[nodiscard]] QStringList none() const { return {}; }
    [[nodiscard]] QString identity() const;
    [[nodiscard]] QString desktopEntry() const;

  public Q_SLOTS:
    // Without effect, as CanRaise and CanQuit say.
    void Raise() {}
    void Quit() {}
};

}  // namespace sonra
