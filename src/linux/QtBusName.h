#pragma once

#include <QObject>
#include <QString>
#include <functional>

#include "linux/QtSessionBus.h"

class QDBusMessage;

namespace sonra {

/// An object on the session bus under a well-known name, taken and given back without waiting.
///
/// Main thread only; borrows the object, whose adaptors are exported. Another instance's name is
/// left to it: this one then goes by the name with ".instance" and its process id behind. Without a
/// bus nothing happens, and the next `take` tries again.
class QtBusName : public QObject {
  public:
    using OnExported = std::function<void()>;

    /// `onExported` runs before anybody can see the object.
    QtBusName(MainLoop& loop, QString name, QString path, QObject& object, OnExported onExported);

    /// Does nothing if the name is held or on its way.
    void take();
    void release();
    /// False as long as nobody could listen.
    [[nodiscard]] bool isExported() const { return exported_ && bus_.isConnected(); }
    /// Sends a signal; only while exported.
    void send(const QDBusMessage& signal);

  private:
    void publish();
    void request(const QString& name);
    void requested(const QString& name, uint answer);
    [[nodiscard]] QDBusMessage busCall(const char* method) const;

    const QString name_;
    const QString path_;
    QObject& object_;
    const OnExported onExported_;
    QtSessionBus bus_;
    bool wanted_ = false;
    bool exported_ = false;
    QString asked_;  ///< the name that was last asked for
    unsigned generation_ = 0;
};

}  // namespace sonra
