#include "linux/QtApplicationCall.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusError>
#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>
#include <chrono>
#include <optional>

#include "linux/SessionBusProbe.h"

namespace sonra::QtApplicationCall {
namespace {

constexpr std::chrono::seconds busLimit{1};
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

/// An error of the other program's own says that it didn't take them. These are the bus's, and come
/// in place of an answer when the call has gone out.
bool mayBeTaken(const QDBusMessage& error) {
    switch (QDBusError(error).type()) {
        case QDBusError::NoReply:
        case QDBusError::Timeout:
        case QDBusError::TimedOut:
        case QDBusError::Disconnected:
            return true;
        default:
            return false;
    }
}

UrlDelivery deliveryOf(const QDBusMessage& answer) {
    if (answer.type() == QDBusMessage::ReplyMessage) return UrlDelivery::taken;
    return mayBeTaken(answer) ? UrlDelivery::unanswered : UrlDelivery::notTaken;
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

UrlDelivery open(const std::vector<std::string>& urls, std::chrono::milliseconds answerLimit) {
    if (!busAnswers(sessionBusAddress(), busLimit)) return UrlDelivery::notTaken;
    const BriefApplication application;
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName);
    const auto delivery = bus.isConnected()
                              ? deliveryOf(bus.call(openCall(urls), QDBus::Block,
                                                    static_cast<int>(answerLimit.count())))
                              : UrlDelivery::notTaken;
    QDBusConnection::disconnectFromBus(connectionName);
    return delivery;
}

}  // namespace sonra::QtApplicationCall
