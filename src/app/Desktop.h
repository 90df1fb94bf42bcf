#pragma once

#include <functional>
#include <memory>
#include <string>

#include "captions/CaptionWindow.h"
#include "platform/DesktopSearchIndex.h"
#include "platform/GlobalHotkeys.h"
#include "platform/MainLoop.h"
#include "platform/NowPlayingCenter.h"
#include "platform/RemoteCommandCenter.h"
#include "platform/Screens.h"
#include "platform/SearchPanel.h"
#include "platform/StatusItem.h"
#include "platform/UserDefaults.h"

namespace sonra {

/// The desktop as the program meets it: tray, panels, media controls, key chords, search, screens
/// and the user's settings, each behind its port.
///
/// Main thread only; owned by the delegate, made once there is an application object. Without a
/// display the panel is nowhere and nothing is painted. A session bus that doesn't answer is gone
/// without: nothing here waits for one.
class Desktop {
  public:
    explicit Desktop(MainLoop& loop);
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    /// Looks whether the session bus answers, and keeps everybody off one that doesn't. To be
    /// called before there is an application object; takes half a second at most.
    static void avoidDeafSessionBus();

    [[nodiscard]] UserDefaults& defaults();
    [[nodiscard]] Screens& screens();
    /// The icon in the tray appears when it is first asked for.
    [[nodiscard]] StatusItem& statusItem();
    [[nodiscard]] NowPlayingCenter& nowPlaying();
    [[nodiscard]] RemoteCommandCenter& remoteCommands();
    [[nodiscard]] CaptionWindow::PanelFactory panelFactory();
    /// Empty without a display.
    [[nodiscard]] std::function<std::unique_ptr<SearchPanel>()> searchPanelFactory();
    /// Null without a display.
    [[nodiscard]] GlobalHotkeys* hotkeys();

    /// What the desktop asks of the running program.
    struct Wishes {
        std::function<void(const std::string& url)> openUrl;
        std::function<void(const std::string& query)> search;
    };
    /// Once, before the search of the desktop is used. They are called from `publish` on.
    void setWishes(const Wishes& wishes);
    [[nodiscard]] DesktopSearchIndex& desktopSearch();
    /// Shows the program on the session bus under its own name.
    void publish();

  private:
    struct Parts;
    const std::unique_ptr<Parts> parts_;
};

}  // namespace sonra
