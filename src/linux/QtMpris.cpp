#include "linux/QtMpris.h"

#include <QDBusMessage>

#include "linux/QtBusName.h"
#include "linux/QtMprisPlayer.h"
#include "linux/QtMprisRoot.h"

namespace sonra {
namespace {

constexpr auto playerName = "org.mpris.MediaPlayer2.sonra";
constexpr auto playerPath = "/org/mpris/MediaPlayer2";
constexpr auto playerInterface = "org.mpris.MediaPlayer2.Player";

QVariantMap differences(const QVariantMap& before, const QVariantMap& now) {
    QVariantMap changed;
    for (auto entry = now.begin(); entry != now.end(); ++entry)
        if (before.value(entry.key()) != entry.value()) changed.insert(entry.key(), entry.value());
    return changed;
}

}  // namespace

/// The object on the bus, with its two interfaces as children, and what its observers know.
struct QtMpris::Exported {
    Exported(MainLoop& loop, MediaSession& session)
        : name(loop, playerName, playerPath, object,
               [this, &session] { told = QtMprisPlayer::observed(session.view()); }) {
        new QtMprisRoot(&object);
        new QtMprisPlayer(&object, session);
    }
    void tell(const QVariantMap& now) {
        const auto changed = differences(told, now);
        if (changed.isEmpty()) return;
        told = now;
        auto signal = QDBusMessage::createSignal(playerPath, "org.freedesktop.DBus.Properties",
                                                 "PropertiesChanged");
        signal << playerInterface << changed << QStringList();
        name.send(signal);
    }
    /// By hand, as the changes are: the adaptor's own signal would take another way to the bus and
    /// could come behind answers that count on it.
    void tellPosition(std::int64_t position) {
        auto signal = QDBusMessage::createSignal(playerPath, playerInterface, "Seeked");
        signal << static_cast<qlonglong>(position);
        name.send(signal);
    }

    QObject object;
    QVariantMap told;
    QtBusName name;
};

QtMpris::QtMpris(MainLoop& loop)
    : MediaSession(loop), exported_(std::make_unique<Exported>(loop, *this)) {}

QtMpris::~QtMpris() = default;

void QtMpris::offer() {
    exported_->name.take();
}

void QtMpris::withdraw() {
    exported_->name.release();
}

void QtMpris::publish(const MediaView& view, std::optional<std::int64_t> jumpedTo) {
    if (!exported_->name.isExported()) return;
    exported_->tell(QtMprisPlayer::observed(view));
    if (jumpedTo) exported_->tellPosition(*jumpedTo);
}

}  // namespace sonra
