#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/ServiceState.h"
#include "frame/SessionRecords.h"
#include "platform/StatusItem.h"

namespace sonra {

/// The menu behind the tray icon: turns a picture of the service into rows, and clicks into
/// callbacks. It decides nothing, and its only state is what it shows.
///
/// Main thread only. The status item must outlive it. Rows that have left the menu still call back;
/// once the controller has gone, no row does anything. Nothing here fails.
class MenuBarController {
  public:
    /// What the user asked for. Of the optional ones, an empty callback takes its row away; the
    /// others may be empty too, and their rows then do nothing.
    struct Callbacks {
        std::function<void()> onPlayPause = {};
        std::function<void()> onSkip = {};
        std::function<void()> onStop = {};
        std::function<void()> onToggleMute = {};
        std::function<void()> onToggleCaptions = {};
        std::function<void(std::int64_t percent)> onVolume = {};
        std::function<void(double speed)> onSpeed = {};
        /// With the row's id, folder, transcript, source, branch and title.
        std::function<void(const DiscoveredRow& session)> onAttach = {};
        std::function<void(const std::string& id)> onDetach = {};
        std::function<void()> onSearch = {};  ///< optional
        std::function<void()> onAbout = {};
        std::function<void()> onToggleStartAtLogin = {};  ///< optional
        std::function<void()> onQuit = {};
    };

    /// The service at one moment.
    struct Picture {
        ServiceState state = {};
        bool isPlaying = false;  ///< the queue is
        bool isSynthesizing = false;
        std::string currentSnippet = {};
        std::vector<AttachedSession> sessions = {};
        std::vector<DiscoveredRow> discovered = {};
        std::vector<DiscoveredRow> recent = {};
        bool isLaunchAgentInstalled = false;
    };

    /// `wallClockMs` gives milliseconds since the epoch, for the ages of sessions.
    MenuBarController(StatusItem& item, std::function<double()> wallClockMs);
    ~MenuBarController();
    MenuBarController(const MenuBarController&) = delete;
    MenuBarController& operator=(const MenuBarController&) = delete;

    void setCallbacks(Callbacks callbacks);

    /// Shows the picture. The submenus are filled only when they open.
    void reflect(Picture picture);
    /// Change the icon and its tool tip between two pictures.
    void setPlaying(bool playing, bool muted);
    void setSynthesizing(bool synthesizing);

    /// The rows of the two session menus, as they are when these open.
    [[nodiscard]] std::vector<MenuRow> populateSessionsMenu() const;
    [[nodiscard]] std::vector<MenuRow> populateAttachMenu() const;

  private:
    struct Shown;

    void updateIcon();

    StatusItem& item_;
    /// Rows hold it weakly.
    std::shared_ptr<Shown> shown_;
};

}  // namespace sonra
