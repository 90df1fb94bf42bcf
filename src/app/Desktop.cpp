#include "app/Desktop.h"

#include <QGuiApplication>
#include <chrono>
#include <optional>

#include "app/HiddenPanel.h"
#include "app/TellingHotkeys.h"
#include "captions/PanelOnDemand.h"
#include "frame/DefaultsDocument.h"
#include "linux/QtApplicationInterface.h"
#include "linux/QtDesktopSearch.h"
#include "linux/QtGlobalHotkeys.h"
#include "linux/QtMpris.h"
#include "linux/QtScreens.h"
#include "linux/SessionBusProbe.h"
#include "search/SearchPanelOnDemand.h"
#include "widgets/CaptionPanel.h"
#include "widgets/FollowedLook.h"
#include "widgets/SearchPanelWindow.h"
#include "widgets/TrayItem.h"

namespace sonra {
namespace {

/// A bus is busy when everything starts with the session; without it there is no tray all day.
constexpr std::chrono::seconds busPatience{2};
constexpr auto busAddressVariable = "DBUS_SESSION_BUS_ADDRESS";
/// An address at which connecting fails at once.
constexpr auto nobodysAddress = "unix:path=/dev/null";

bool hasDisplay() {
    return QGuiApplication::platformName() != "offscreen";
}

}  // namespace

struct Desktop::Parts {
    explicit Parts(MainLoop& mainLoop) : loop(mainLoop), mpris(loop) {}

    MainLoop& loop;
    DefaultsDocument defaults{DefaultsDocument::defaultPath()};
    QtScreens screens;
    FollowedLook look;
    QtMpris mpris;
    std::optional<TrayItem> tray;  ///< made for whoever asks for it
    std::unique_ptr<GlobalHotkeys> hotkeys;
    std::optional<QtApplicationInterface> application;
    std::optional<QtDesktopSearch> search;
};

Desktop::Desktop(MainLoop& loop) : parts_(std::make_unique<Parts>(loop)) {}

Desktop::~Desktop() = default;

void Desktop::avoidDeafSessionBus() {
    const auto address = sessionBusAddress();
    if (!address.empty() && !busAnswers(address, busPatience))
        qputenv(busAddressVariable, nobodysAddress);
}

UserDefaults& Desktop::defaults() {
    return parts_->defaults;
}

Screens& Desktop::screens() {
    return parts_->screens;
}

StatusItem& Desktop::statusItem() {
    if (!parts_->tray) parts_->tray.emplace(parts_->look);
    return *parts_->tray;
}

NowPlayingCenter& Desktop::nowPlaying() {
    return parts_->mpris;
}

RemoteCommandCenter& Desktop::remoteCommands() {
    return parts_->mpris;
}

CaptionWindow::PanelFactory Desktop::panelFactory() {
    return [this](CaptionPanelModel& model) -> std::unique_ptr<FloatingPanel> {
        if (!hasDisplay()) return std::make_unique<HiddenPanel>();
        return std::make_unique<PanelOnDemand>(
            [this, &model] { return std::make_unique<CaptionPanel>(model, parts_->look); });
    };
}

std::function<std::unique_ptr<SearchPanel>()> Desktop::searchPanelFactory() {
    if (!hasDisplay()) return {};
    return [this] {
        return std::make_unique<SearchPanelOnDemand>(
            [this] { return std::make_unique<SearchPanelWindow>(parts_->look); });
    };
}

GlobalHotkeys* Desktop::hotkeys() {
    if (!parts_->hotkeys && hasDisplay())
        parts_->hotkeys = std::make_unique<TellingHotkeys>(makeGlobalHotkeys(parts_->loop));
    return parts_->hotkeys.get();
}

void Desktop::setWishes(const Wishes& wishes) {
    QtApplicationInterface::Handlers handlers;
    handlers.open = wishes.openUrl;
    parts_->application.emplace(parts_->loop, std::move(handlers));
    parts_->search.emplace(parts_->loop, parts_->application->exported(),
                           QtDesktopSearch::Handlers{wishes.openUrl, wishes.search});
}

DesktopSearchIndex& Desktop::desktopSearch() {
    return parts_->search->index();
}

void Desktop::publish() {
    parts_->application->publish();
}

}  // namespace sonra
