#pragma once

#include <QDBusConnection>
#include <QString>

namespace sonra {

/// Shows a notification of the desktop, without waiting. `body` is plain text. Where no service
/// shows notifications, that is logged and nothing else happens. Main thread only.
void notifyUser(const QDBusConnection& bus, const QString& summary, const QString& body);

}  // namespace sonra
