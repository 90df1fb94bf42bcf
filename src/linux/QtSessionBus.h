#pragma once

#include <QDBusConnection>
#include <QString>
#include <functional>
#include <memory>
#include <optional>

#include "frame/Log.h"
#include "platform/MainLoop.h"

namespace sonra {

/// A connection of our own to the session bus, made without holding up anything.
///
/// Main thread only; the loop must outlive every attempt. Connecting happens on a thread that ends
/// with it, and only to a bus that answers. Where there is none, that is logged once and each call
/// tries anew.
class QtSessionBus {
  public:
    using OnConnected = std::function<void()>;
    using OnAbsent = std::function<void()>;

    /// `name` tells the connection from others of this process.
    QtSessionBus(MainLoop& loop, QString name, OnConnected onConnected, OnAbsent onAbsent = {});
    ~QtSessionBus();
    QtSessionBus(const QtSessionBus&) = delete;
    QtSessionBus& operator=(const QtSessionBus&) = delete;

    /// `onConnected` or `onAbsent` follows later, unless there is a connection or an attempt
    /// already.
    void connect();
    [[nodiscard]] bool isConnected() const { return bus_ && bus_->isConnected(); }
    /// Only while connected.
    [[nodiscard]] QDBusConnection& bus() { return *bus_; }

  private:
    void finish(const std::optional<QDBusConnection>& bus);

    MainLoop& loop_;
    const QString name_;
    const OnConnected onConnected_;
    const OnAbsent onAbsent_;
    const Log log_;
    std::optional<QDBusConnection> bus_;
    bool connecting_ = false;
    bool absenceLogged_ = false;
    /// Expires with this object.
    const std::shared_ptr<QtSessionBus*> self_ = std::make_shared<QtSessionBus*>(this);
};

}  // namespace sonra
