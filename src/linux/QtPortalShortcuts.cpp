#include "linux/QtPortalShortcuts.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <algorithm>
#include <chrono>
#include <utility>

#include "frame/ThreadAffinity.h"
#include "linux/QtPortalTypes.h"

namespace sonra {
namespace {

constexpr auto portalName = "org.freedesktop.portal.Desktop";
constexpr auto portalPath = "/org/freedesktop/portal/desktop";
constexpr auto shortcutsInterface = "org.freedesktop.portal.GlobalShortcuts";
constexpr auto requestInterface = "org.freedesktop.portal.Request";
constexpr auto sessionInterface = "org.freedesktop.portal.Session";
constexpr auto applicationId = "dev.trelnivorn.sonra";

// What a request's response begins with.
constexpr uint granted = 0;
constexpr uint cancelledByUser = 1;

constexpr auto noPortalReason =
    "This desktop lets no program have global shortcuts; a command such as \"tts search\" can be "
    "bound in its own keyboard settings";
constexpr auto declinedReason =
    "The desktop declined the shortcut; its own keyboard settings may allow it";

/// A desktop that ends what it granted is asked again, but not over and over.
constexpr std::chrono::minutes betweenRenewals{1};

/// Repeats of a held key come faster than this; a release that got lost is forgotten after it.
constexpr std::chrono::seconds repeatsWithin{1};

QDBusMessage portalCall(const char* interface, const char* method) {
    return QDBusMessage::createMethodCall(portalName, portalPath, interface, method);
}

/// Absent keys count as given: not every desktop says which they are.
bool hasKeys(const QtPortalShortcut& shortcut) {
    const auto keys = shortcut.properties.constFind("trigger_description");
    return keys == shortcut.properties.constEnd() || !keys->toString().isEmpty();
}

/// Written as a text or as a path, depending on the portal's version.
QString pathIn(const QVariant& value) {
    return value.canConvert<QDBusObjectPath>() ? value.value<QDBusObjectPath>().path()
                                               : value.toString();
}

}  // namespace

QtPortalShortcuts::QtPortalShortcuts(MainLoop& loop)
    : loop_(loop),
      log_(Log::shared().child({{"class", "QtPortalShortcuts"}})),
      bus_(
          loop, "sonra.shortcuts", [this] { connected(); },
          [this] { refuseAll(State::refused, noPortalReason); }) {
    qDBusRegisterMetaType<QtPortalShortcut>();
    qDBusRegisterMetaType<QtPortalShortcutList>();
}

QtPortalShortcuts::~QtPortalShortcuts() = default;

QString QtPortalShortcuts::trigger(const KeyChord& chord) {
    QString text;
    if (chord.control) text += "CTRL+";
    if (chord.option) text += "ALT+";
    if (chord.shift) text += "SHIFT+";
    if (chord.command) text += "LOGO+";
    return text + QString::fromStdString(chord.keyName);
}

QString QtPortalShortcuts::shortcutId(const KeyChord& chord) {
    return trigger(chord).toLower().replace('+', '-');
}

bool QtPortalShortcuts::registerHotKey(std::uint32_t id, const KeyChord& chord,
                                       const std::string& title) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto same = [&chord](const auto& entry) { return entry.second.chord == chord; };
    if (std::ranges::any_of(wishes_, same)) return false;
    wishes_.insert_or_assign(id, Wish{chord, QString::fromStdString(title), std::nullopt});
    bindLater();
    return true;
}

void QtPortalShortcuts::unregisterHotKey(std::uint32_t id) {
    SONRA_ASSERT_MAIN_THREAD();
    if (wishes_.erase(id) > 0) bindLater();
}

void QtPortalShortcuts::post(std::function<void()> work) {
    loop_.post([weak = std::weak_ptr(self_), work = std::move(work)] {
        if (const auto self = weak.lock()) work();
    });
}

void QtPortalShortcuts::bindLater() {
    if (std::exchange(bindPending_, true)) return;
    post([this] {
        bindPending_ = false;
        bind();
    });
}

void QtPortalShortcuts::bind() {
    requests_.clear();
    closeSession();
    state_ = State::idle;
    if (wishes_.empty()) return;
    state_ = State::asking;
    if (bus_.isConnected())
        createSession();
    else
        bus_.connect();
}

void QtPortalShortcuts::connected() {
    auto& bus = bus_.bus();
    portalWatch_ = std::make_unique<QDBusServiceWatcher>(portalName, bus);
    // The narrower signals say nothing of a portal that another takes over from.
    connect(portalWatch_.get(), &QDBusServiceWatcher::serviceOwnerChanged, this,
            [this](const QString&, const QString& before, const QString& after) {
                portalChanged(!before.isEmpty(), !after.isEmpty());
            });
    // Asking for signals of a name would wait for its owner; the session's path tells enough.
    bus.connect({}, portalPath, shortcutsInterface, "Activated", this,
                SLOT(activated(QDBusMessage)));
    bus.connect({}, portalPath, shortcutsInterface, "Deactivated", this,
                SLOT(deactivated(QDBusMessage)));
    // Of any path: a session may end before its own could be listened to.
    bus.connect({}, {}, sessionInterface, "Closed", this, SLOT(closed(QDBusMessage)));
    // Newer portals want to know whose connection this is; older ones don't know the question.
    auto introduction = portalCall("org.freedesktop.host.portal.Registry", "Register");
    introduction << QString(applicationId) << QVariantMap();
    bus.asyncCall(introduction);
    if (state_ == State::asking) createSession();
}

void QtPortalShortcuts::createSession() {
    const QVariantMap options{{"session_handle_token", "sonra" + QString::number(++tokens_)}};
    request(portalCall(shortcutsInterface, "CreateSession"), options,
            [this](uint code, const QVariantMap& results) {
                session_ = pathIn(results.value("session_handle"));
                if (code != granted || session_.isEmpty())
                    return refuseAll(State::refused, noPortalReason);
                bindShortcuts();
            });
}

void QtPortalShortcuts::bindShortcuts() {
    QtPortalShortcutList shortcuts;
    for (const auto& [id, wish] : wishes_)
        shortcuts << QtPortalShortcut{
            shortcutId(wish.chord),
            {{"description", wish.title}, {"preferred_trigger", trigger(wish.chord)}}};
    auto call = portalCall(shortcutsInterface, "BindShortcuts");
    call << QVariant::fromValue(QDBusObjectPath(session_)) << QVariant::fromValue(shortcuts)
         << QString();
    request(call, {}, [this](uint code, const QVariantMap& results) {
        if (code == granted) return bound(results);
        refuseAll(code == cancelledByUser ? State::declined : State::refused, declinedReason);
    });
}

void QtPortalShortcuts::bound(const QVariantMap& results) {
    state_ = State::bound;
    const auto shortcuts = qdbus_cast<QtPortalShortcutList>(results.value("shortcuts"));
    for (const auto& [id, wish] : wishes_) {
        const auto grants = [name = shortcutId(wish.chord)](const QtPortalShortcut& shortcut) {
            return shortcut.id == name && hasKeys(shortcut);
        };
        if (!std::ranges::any_of(shortcuts, grants)) refuse(id, declinedReason);
    }
}

void QtPortalShortcuts::closeSession() {
    close(std::exchange(session_, {}));
}

void QtPortalShortcuts::close(const QString& path) {
    if (path.isEmpty() || !bus_.isConnected()) return;
    bus_.bus().send(QDBusMessage::createMethodCall(portalName, path, sessionInterface, "Close"));
}

void QtPortalShortcuts::request(QDBusMessage call, QVariantMap options, OnResponse onResponse) {
    const auto token = "sonra" + QString::number(++tokens_);
    options["handle_token"] = token;
    call << options;
    // Listened to before it is made, or the response could come first.
    const auto sender = bus_.bus().baseService().mid(1).replace('.', '_');
    const auto path = QString(portalPath) + "/request/" + sender + "/" + token;
    listenTo(path, std::move(onResponse));
    auto* const reply = new QDBusPendingCallWatcher(bus_.bus().asyncCall(call), this);
    connect(reply, &QDBusPendingCallWatcher::finished, this, [this, reply, path] {
        reply->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> answer = *reply;
        if (answer.isError()) callFailed(path, answer.error().message());
    });
}

void QtPortalShortcuts::listenTo(const QString& requestPath, OnResponse onResponse) {
    requests_[requestPath] = std::move(onResponse);
    bus_.bus().connect({}, requestPath, requestInterface, "Response", this,
                       SLOT(responded(uint, QVariantMap, QDBusMessage)));
}

void QtPortalShortcuts::callFailed(const QString& requestPath, const QString& error) {
    if (requests_.erase(requestPath) == 0) return;
    log_.info("no global shortcuts portal", {{"result", {{"error", error.toStdString()}}}});
    refuseAll(State::refused, noPortalReason);
}

void QtPortalShortcuts::responded(uint code, const QVariantMap& results,
                                  const QDBusMessage& message) {
    bus_.bus().disconnect({}, message.path(), requestInterface, "Response", this,
                          SLOT(responded(uint, QVariantMap, QDBusMessage)));
    const auto found = requests_.extract(message.path());
    if (found) return found.mapped()(code, results);
    // Nobody waits for it any more; the session that it may have made is nobody's.
    close(pathIn(results.value("session_handle")));
}

void QtPortalShortcuts::refuseAll(State state, const std::string& reason) {
    state_ = state;
    closeSession();
    for (const auto& [id, wish] : wishes_) refuse(id, reason);
}

void QtPortalShortcuts::refuse(std::uint32_t id, const std::string& reason) {
    log_.warn("global hotkey can't be had", {{"input", {{"key", wishes_.at(id).chord.keyName}}},
                                             {"result", {{"reason", reason}}}});
    post([this, id, reason] {
        // A copy: what is called may set others.
        if (const auto handler = handlers_.refused) handler(id, reason);
    });
}

std::map<std::uint32_t, QtPortalShortcuts::Wish>::iterator QtPortalShortcuts::wishOf(
    const QDBusMessage& message) {
    const auto arguments = message.arguments();
    if (session_.isEmpty() || arguments.size() < 2 || pathIn(arguments[0]) != session_)
        return wishes_.end();
    return std::ranges::find_if(wishes_, [name = arguments[1].toString()](const auto& entry) {
        return shortcutId(entry.second.chord) == name;
    });
}

void QtPortalShortcuts::activated(const QDBusMessage& message) {
    const auto wish = wishOf(message);
    if (wish == wishes_.end()) return;
    const auto now = loop_.now();
    const auto before = std::exchange(wish->second.heldSince, now);
    if (before && now - *before < repeatsWithin) return;
    post([this, id = wish->first] {
        if (const auto handler = handlers_.pressed) handler(id);
    });
}

void QtPortalShortcuts::deactivated(const QDBusMessage& message) {
    if (const auto wish = wishOf(message); wish != wishes_.end()) wish->second.heldSince.reset();
}

void QtPortalShortcuts::closed(const QDBusMessage& message) {
    if (session_.isEmpty() || message.path() != session_) return;
    session_.clear();
    const auto now = loop_.now();
    const auto before = std::exchange(lastRenewal_, now);
    if (before && now - *before < betweenRenewals) {
        requests_.clear();
        return refuseAll(State::refused, declinedReason);
    }
    log_.info("the desktop ended the session of the global hotkeys, they are asked for anew");
    bindLater();
}

void QtPortalShortcuts::portalChanged(bool wasThere, bool isThere) {
    if (wasThere) {
        requests_.clear();
        session_.clear();
    }
    const bool lost = wasThere && (state_ == State::asking || state_ == State::bound);
    if (lost && !isThere) return refuseAll(State::refused, noPortalReason);
    // While asking it is the bus that starts the portal for us; who declined isn't asked again.
    if (isThere && (lost || state_ == State::refused)) bindLater();
}

}  // namespace sonra
