#include "app/TellingHotkeys.h"

#include <QDBusConnection>
#include <QString>
#include <utility>

#include "linux/ChordName.h"
#include "widgets/DesktopNotification.h"

namespace sonra {
namespace {

/// What a chord that is refused at once comes to; the log has which it was.
constexpr auto outOfReach = "another program has it, or this keyboard doesn't";

}  // namespace

TellingHotkeys::TellingHotkeys(std::unique_ptr<GlobalHotkeys> hotkeys)
    : hotkeys_(std::move(hotkeys)) {}

void TellingHotkeys::setHandlers(Handlers handlers) {
    handlers_ = std::move(handlers);
    hotkeys_->setHandlers({handlers_.pressed, [this](std::uint32_t id, const std::string& reason) {
                               refused(id, reason);
                           }});
}

bool TellingHotkeys::registerHotKey(std::uint32_t id, const KeyChord& chord,
                                    const std::string& title) {
    Wish wish{chordName(chord), title};
    if (!hotkeys_->registerHotKey(id, chord, title)) {
        tell(wish, outOfReach);
        return false;
    }
    wishes_.insert_or_assign(id, std::move(wish));
    return true;
}

void TellingHotkeys::unregisterHotKey(std::uint32_t id) {
    hotkeys_->unregisterHotKey(id);
    wishes_.erase(id);
}

void TellingHotkeys::refused(std::uint32_t id, const std::string& reason) {
    if (const auto wish = wishes_.find(id); wish != wishes_.end()) tell(wish->second, reason);
    // A copy: what is called may set others.
    if (const auto handler = handlers_.refused) handler(id, reason);
}

void TellingHotkeys::tell(const Wish& wish, const std::string& reason) {
    if (!told_.insert(wish.title).second) return;
    notifyUser(QDBusConnection::sessionBus(), QStringLiteral("A shortcut of Sonra's is missing"),
               QString::fromStdString(wish.keys + " doesn't work for \"" + wish.title +
                                      "\": " + reason + "."));
}

}  // namespace sonra
