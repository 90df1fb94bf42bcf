#include "linux/QtSessionBus.h"

#include <chrono>
#include <string>
#include <utility>

#include "frame/SerialQueue.h"
#include "frame/ThreadAffinity.h"
#include "linux/SessionBusProbe.h"

namespace sonra {
namespace {

/// A bus that is well answers within a millisecond or two; one on a busy machine gets its time.
constexpr std::chrono::seconds answerLimit{2};

std::optional<QDBusConnection> connectTo(const std::string& address, const QString& name) {
    if (!busAnswers(address, answerLimit)) return std::nullopt;
    // What is left of a connection that broke would be returned in place of a new one.
    QDBusConnection::disconnectFromBus(name);
    auto bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, name);
    if (!bus.isConnected()) return std::nullopt;
    return bus;
}

}  // namespace

QtSessionBus::QtSessionBus(MainLoop& loop, QString name, OnConnected onConnected, OnAbsent onAbsent)
    : loop_(loop),
      name_(std::move(name)),
      onConnected_(std::move(onConnected)),
      onAbsent_(std::move(onAbsent)),
      log_(Log::shared().child({{"class", "QtSessionBus"}})) {}

QtSessionBus::~QtSessionBus() {
    if (bus_) QDBusConnection::disconnectFromBus(name_);
}

void QtSessionBus::connect() {
    SONRA_ASSERT_MAIN_THREAD();
    if (connecting_ || isConnected()) return;
    bus_.reset();
    connecting_ = true;
    SerialQueue("sonra.bus")
        .post([&loop = loop_, weak = std::weak_ptr(self_), address = sessionBusAddress(),
               name = name_] {
            loop.post([weak, bus = connectTo(address, name)] {
                if (const auto self = weak.lock()) (*self)->finish(bus);
            });
        });
}

void QtSessionBus::finish(const std::optional<QDBusConnection>& bus) {
    connecting_ = false;
    bus_ = bus;
    if (isConnected()) return onConnected_();
    if (!std::exchange(absenceLogged_, true))
        log_.info("no session bus, what needs one stays off",
                  {{"input", {{"name", name_.toStdString()}}}});
    if (onAbsent_) onAbsent_();
}

}  // namespace sonra
