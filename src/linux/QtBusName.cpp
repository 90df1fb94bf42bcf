#include "linux/QtBusName.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

// Values of the bus's own protocol.
constexpr uint doNotQueue = 4;
constexpr uint nameExists = 3;

}  // namespace

QtBusName::QtBusName(MainLoop& loop, QString name, QString path, QObject& object,
                     OnExported onExported)
    : name_(std::move(name)),
      path_(std::move(path)),
      object_(object),
      onExported_(std::move(onExported)),
      bus_(loop, name_, [this] { publish(); }) {}

void QtBusName::take() {
    SONRA_ASSERT_MAIN_THREAD();
    wanted_ = true;
    if (!bus_.isConnected()) {
        exported_ = false;
        bus_.connect();
    } else if (!exported_) {
        publish();
    }
}

void QtBusName::release() {
    SONRA_ASSERT_MAIN_THREAD();
    wanted_ = false;
    if (!isExported()) return;
    ++generation_;
    exported_ = false;
    bus_.bus().unregisterObject(path_);
    auto call = busCall("ReleaseName");
    call << asked_;
    bus_.bus().send(call);
}

void QtBusName::send(const QDBusMessage& signal) {
    bus_.bus().send(signal);
}

void QtBusName::publish() {
    if (!wanted_) return;
    exported_ = bus_.bus().registerObject(path_, &object_, QDBusConnection::ExportAdaptors);
    if (!exported_) return;
    onExported_();
    request(name_);
}

void QtBusName::request(const QString& name) {
    asked_ = name;
    auto call = busCall("RequestName");
    call << name << doNotQueue;
    auto* reply = new QDBusPendingCallWatcher(bus_.bus().asyncCall(call), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this,
            [this, reply, name, generation = generation_] {
                reply->deleteLater();
                const QDBusPendingReply<uint> answer = *reply;
                if (generation == generation_ && answer.isValid()) requested(name, answer.value());
            });
}

void QtBusName::requested(const QString& name, uint answer) {
    if (answer == nameExists && name == name_)
        request(name_ + ".instance" + QString::number(QCoreApplication::applicationPid()));
}

QDBusMessage QtBusName::busCall(const char* method) const {
    return QDBusMessage::createMethodCall("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                          "org.freedesktop.DBus", method);
}

}  // namespace sonra
