#include "linux/QtApplicationCall.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <optional>

#include "linux/SessionBusProbe.h"

namespace sonra::QtApplicationCall {
namespace {

constexpr std::chrono::seconds busLimit{1};
constexpr int answerLimitMs = 2000;
constexpr auto connectionName = "sonra.handover";

QDBusMessage openCall(const std::vector<std::string>& urls) {
    QStringList uris;
    for (const auto& url : urls) uris << QString::fromStdString(url);
    auto call = QDBusMessage::createMethodCall("dev.trelnivorn.sonra", "/dev/trelnivorn/sonra",
                                               "org.freedesktop.Application", "Open");
    call << uris << QVariantMap();
    // Who holds the lock runs already; another one would only end again.
    call.setAutoStartService(false);
    return call;
}

/// The D-Bus classes need an application object.
class BriefApplication {
  public:
    BriefApplication() {
        if (!QCoreApplication::instance()) application_.emplace(count_, arguments_);
    }

  private:
    int count_ = 1;
    char name_[6] = "sonra";
    char* arguments_[2] = {name_, nullptr};
    std::optional<QCoreApplication> application_;
};

}  // namespace

bool open(const std::vector<std::string>& urls) {
    if (!busAnswers(sessionBusAddress(), busLimit)) return false;
    const BriefApplication application;
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
    const auto isOpened =
        bus.isConnected() &&
        bus.call(openCall(urls), QDBus::Block, answerLimitMs).type() == QDBusMessage::ReplyMessage;
    QDBusConnection::disconnectFromBus(connectionName);
    return isOpened;
}

}  // namespace sonra::QtApplicationCall
