#pragma once

#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "frame/Log.h"
#include "linux/QtSessionBus.h"
#include "platform/GlobalHotkeys.h"
#include "platform/MainLoop.h"

class QDBusServiceWatcher;

namespace sonra {

/// Global key chords on desktops where programs don't see foreign keys: the desktop's portal asks
/// the user and reports presses (org.freedesktop.portal.GlobalShortcuts).
///
/// Main thread only; the loop must outlive it. Every registration is taken first, and refused later
/// if the portal is missing or says no; the reason then names the way that is left. What is
/// registered in one turn of the loop is asked for together, and all anew when that changes, the
/// portal was started again or it ended the session; ended twice within a minute, it is refused.
class QtPortalShortcuts : public QObject, public GlobalHotkeys {
    Q_OBJECT

  public:
    /// Needs the application object.
    explicit QtPortalShortcuts(MainLoop& loop);
    ~QtPortalShortcuts() override;

    void setHandlers(Handlers handlers) override { handlers_ = std::move(handlers); }
    [[nodiscard]] bool registerHotKey(std::uint32_t id, const KeyChord& chord,
                                      const std::string& title) override;
    void unregisterHotKey(std::uint32_t id) override;

    /// How the portal writes a chord: "LOGO+SHIFT+f".
    static QString trigger(const KeyChord& chord);
    /// The chord's name at the portal, by which the desktop remembers what the user chose: the same
    /// in every process.
    static QString shortcutId(const KeyChord& chord);

  private:
    enum class State { idle, asking, bound, refused, declined };
    struct Wish {
        KeyChord chord;
        QString title;
        std::optional<MainLoop::TimePoint> heldSince;  ///< of the last sign that the key is down
    };
    using OnResponse = std::function<void(uint code, const QVariantMap& results)>;

    void connected();
    void bindLater();
    void bind();
    void createSession();
    void bindShortcuts();
    void bound(const QVariantMap& results);
    void closeSession();
    void close(const QString& session);
    /// Calls a method whose answer comes as a signal of a request object.
    void request(QDBusMessage call, QVariantMap options, OnResponse onResponse);
    void listenTo(const QString& requestPath, OnResponse onResponse);
    void callFailed(const QString& requestPath, const QString& error);
    void refuseAll(State state, const std::string& reason);
    void refuse(std::uint32_t id, const std::string& reason);
    void post(std::function<void()> work);
    [[nodiscard]] std::map<std::uint32_t, Wish>::iterator wishOf(const QDBusMessage& message);
    void portalChanged(bool wasThere, bool isThere);

  private Q_SLOTS:
    void responded(uint code, const QVariantMap& results, const QDBusMessage& message);
    void activated(const QDBusMessage& message);
    void deactivated(const QDBusMessage& message);
    void closed(const QDBusMessage& message);

  private:
    MainLoop& loop_;
    const Log log_;
    Handlers handlers_;
    std::map<std::uint32_t, Wish> wishes_;
    QtSessionBus bus_;
    std::unique_ptr<QDBusServiceWatcher> portalWatch_;
    std::map<QString, OnResponse> requests_;  ///< those under way, by the path of their object
    QString session_;                         ///< empty while there is none
    /// When a session that the desktop had ended was asked for anew.
    std::optional<MainLoop::TimePoint> lastRenewal_;
    State state_ = State::idle;
    bool bindPending_ = false;
    unsigned tokens_ = 0;
    /// Expires with this object.
    const std::shared_ptr<QtPortalShortcuts*> self_ = std::make_shared<QtPortalShortcuts*>(this);
};

}  // namespace sonra
