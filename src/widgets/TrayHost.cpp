#include "widgets/TrayHost.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <algorithm>
#include <chrono>
#include <string>

#include "widgets/XcbConnection.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

const auto watcherName = QStringLiteral("org.kde.StatusNotifierWatcher");
const auto watcherPath = QStringLiteral("/StatusNotifierWatcher");

// A panel that has just come needs a moment before it takes icons.
constexpr auto hostSettleTime = 200ms;
// At the start of a session the panel may come after us.
constexpr auto patienceTime = 5s;
constexpr auto longestPatience = 10min;

bool hasEmbedder() {
    auto* connection = XcbConnection::get();
    if (connection == nullptr) return false;
    const auto selection = XcbConnection::atom("_NET_SYSTEM_TRAY_S0");
    const XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        connection, xcb_get_selection_owner(connection, selection), nullptr));
    return reply && reply->owner != XCB_WINDOW_NONE;
}

}  // namespace

TrayHost::TrayHost(const QDBusConnection& bus)
    : bus_(bus), watcher_(watcherName, bus, QDBusServiceWatcher::WatchForRegistration) {
    settling_.setSingleShot(true);
    settling_.setInterval(hostSettleTime);
    patience_.setSingleShot(true);
    patience_.setInterval(patienceTime);
    connect(&settling_, &QTimer::timeout, this, &TrayHost::ask);
    connect(&patience_, &QTimer::timeout, this, &TrayHost::giveUp);
    connect(&watcher_, &QDBusServiceWatcher::serviceRegistered, this, &TrayHost::expect);
}

void TrayHost::start() {
    bus_.connect(watcherName, watcherPath, watcherName,
                 QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(expect()));
    patience_.start();
    expect();
}

void TrayHost::expect() {
    if (!isSettled_) settling_.start();
}

/// A watcher alone isn't enough: it may be there before a panel is.
void TrayHost::ask() {
    auto question = QDBusMessage::createMethodCall(
        watcherName, watcherPath, QStringLiteral("org.freedesktop.DBus.Properties"),
        QStringLiteral("Get"));
    question.setAutoStartService(false);
    question << watcherName << QStringLiteral("IsStatusNotifierHostRegistered");
    auto* answer = new QDBusPendingCallWatcher(bus_.asyncCall(question), this);
    connect(answer, &QDBusPendingCallWatcher::finished, this, [this, answer] {
        answer->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *answer;
        if (reply.isValid() && reply.value().variant().toBool()) settle(Kind::panel);
    });
}

void TrayHost::giveUp() {
    if (isSettled_) return;
    if (hasEmbedder()) return settle(Kind::embedder);
    if (patience_.interval() == milliseconds(patienceTime).count()) Q_EMIT missing();
    // An X11 tray doesn't tell when it comes. Ever rarer looks cost nothing worth counting.
    patience_.start(std::min(2 * patience_.intervalAsDuration(), milliseconds(longestPatience)));
}

void TrayHost::settle(Kind kind) {
    if (isSettled_) return;
    isSettled_ = true;
    patience_.stop();
    Q_EMIT ready(kind);
}

}  // namespace sonra
