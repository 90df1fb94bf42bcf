#include "widgets/PortalSettings.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace sonra {
namespace {

constexpr auto service = "org.freedesktop.portal.Desktop";
constexpr auto path = "/org/freedesktop/portal/desktop";
constexpr auto interface = "org.freedesktop.portal.Settings";

constexpr auto appearance = "org.freedesktop.appearance";
constexpr auto gnomeInterface = "org.gnome.desktop.interface";
constexpr auto gnomeAccess = "org.gnome.desktop.a11y.interface";
constexpr auto kde = "org.kde.kdeglobals.KDE";

constexpr uint darkScheme = 1;
constexpr uint lightScheme = 2;

using Namespaces = QMap<QString, QVariantMap>;

}  // namespace

PortalSettings::PortalSettings(const QDBusConnection& bus) : bus_(bus) {
    qDBusRegisterMetaType<Namespaces>();
    // The slot's argument is looked up by its name, which nobody may have made known yet.
    qRegisterMetaType<QDBusVariant>();
    if (!bus_.isConnected()) return;
    bus_.connect(service, path, interface, "SettingChanged", this,
                 SLOT(noteSetting(QString, QString, QDBusVariant)));
    const auto* arrivals =
        new QDBusServiceWatcher(service, bus_, QDBusServiceWatcher::WatchForRegistration, this);
    connect(arrivals, &QDBusServiceWatcher::serviceRegistered, this, [this] { ask(); });
    ask();
}

void PortalSettings::ask() {
    auto call = QDBusMessage::createMethodCall(service, path, interface, "ReadAll");
    call << QStringList{appearance, gnomeInterface, gnomeAccess, kde};
    auto* reply = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply] {
        reply->deleteLater();
        const QDBusPendingReply<Namespaces> answer = *reply;
        if (answer.isError()) return;
        values_ = answer.value();
        Q_EMIT changed();
    });
}

void PortalSettings::noteSetting(const QString& space, const QString& key,
                                 const QDBusVariant& value) {
    values_[space][key] = value.variant();
    Q_EMIT changed();
}

QVariant PortalSettings::value(const char* space, const char* key) const {
    return values_.value(space).value(key);
}

std::optional<bool> PortalSettings::prefersDark() const {
    const auto scheme = value(appearance, "color-scheme").toUInt();
    if (scheme == darkScheme) return true;
    if (scheme == lightScheme) return false;
    return std::nullopt;
}

bool PortalSettings::highContrast() const {
    return value(appearance, "contrast").toUInt() == 1 ||
           value(gnomeAccess, "high-contrast").toBool();
}

bool PortalSettings::reducedMotion() const {
    if (value(appearance, "reduced-motion").toUInt() == 1) return true;
    const auto animations = value(gnomeInterface, "enable-animations");
    if (animations.isValid() && !animations.toBool()) return true;
    const auto factor = value(kde, "AnimationDurationFactor");
    return factor.isValid() && factor.toString().toDouble() == 0;
}

}  // namespace sonra
