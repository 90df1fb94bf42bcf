#include "widgets/DesktopNotification.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include "frame/Log.h"

namespace sonra {
namespace {

void logRefusal(const QDBusPendingCallWatcher& call) {
    const QDBusPendingReply<uint> reply = call;
    if (!reply.isError()) return;
    Log::shared()
        .child({{"class", "DesktopNotification"}})
        .info("no notification could be shown", {{"reason", reply.error().name().toStdString()}});
}

}  // namespace

void notifyUser(const QDBusConnection& bus, const QString& summary, const QString& body) {
    const auto service = QStringLiteral("org.freedesktop.Notifications");
    const auto appId = QStringLiteral("dev.trelnivorn.sonra");
    auto message =
        QDBusMessage::createMethodCall(service, QStringLiteral("/org/freedesktop/Notifications"),
                                       service, QStringLiteral("Notify"));
    // Services that read markup would take plain text's signs for it.
    message << QStringLiteral("Sonra") << 0U << appId << summary << body.toHtmlEscaped()
            << QStringList() << QVariantMap{{QStringLiteral("desktop-entry"), appId}} << -1;
    auto* call = new QDBusPendingCallWatcher(bus.asyncCall(message), qApp);
    QObject::connect(call, &QDBusPendingCallWatcher::finished, [call] {
        logRefusal(*call);
        call->deleteLater();
    });
}

}  // namespace sonra
