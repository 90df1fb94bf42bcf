#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "frame/SessionRecords.h"
#include "platform/GlobalHotkeys.h"
#include "platform/MainLoop.h"
#include "platform/Screens.h"
#include "platform/SearchPanel.h"
#include "platform/TreeWatcher.h"
#include "platform/UserDefaults.h"
#include "search/SearchPanelController.h"
#include "search/SessionIndex.h"
#include "search/SpotlightIndexer.h"

namespace sonra {

class WorkerPool;

/// What the search needs of the desktop. The ports must outlive whoever is given them.
struct SearchPorts {
    TreeWatcher& tree;
    DesktopSearchIndex& desktopSearch;
    /// Empty where nothing can be shown.
    std::function<std::unique_ptr<SearchPanel>()> makePanel = {};
    GlobalHotkeys* hotkeys = nullptr;  ///< null where there are none
};

/// The catalogue of all sessions with its two doors, the search panel and the desktop's own search.
///
/// Main thread only; what takes long runs on the pool and comes home. Owned by the coordinator.
/// Where the desktop lacks something, the rest works without it.
class SessionSearch {
  public:
    struct Callbacks {
        std::function<std::set<std::string>()> currentAttachedIds = {};
        std::function<void(const std::string& id, const std::string& cwd)> onAttach = {};
        std::function<void()> onRecentChanged = {};
    };
    struct Surroundings {
        MainLoop& loop;
        WorkerPool& pool;
        Screens& screens;
        UserDefaults& defaults;
        std::function<double()> wallClockMs;  ///< milliseconds since the epoch
    };

    SessionSearch(SearchPorts ports, Surroundings surroundings, Callbacks callbacks);
    ~SessionSearch();
    SessionSearch(const SessionSearch&) = delete;
    SessionSearch& operator=(const SessionSearch&) = delete;

    /// Takes the hotkey, reads the cached catalogue, and has it brought up to date behind the
    /// caller's back.
    void start();

    [[nodiscard]] bool hasPanel() const { return panel_ != nullptr; }
    /// With the query of last time, unless another is given.
    void openPanel(const std::optional<std::string>& query = {});
    /// Attaches the session that an address names; false if it names none. One that isn't known
    /// waits for the first reading of the transcripts.
    bool openFromURLString(const std::string& text);
    /// The newest sessions, for the menu.
    [[nodiscard]] const std::vector<DiscoveredRow>& recentSessionsForMenu() const {
        return recent_;
    }
    /// Where the catalogue knows the session's transcript to be.
    [[nodiscard]] std::optional<std::string> transcriptOf(const std::string& id) const;

  private:
    void makePanel();
    void wireSpotlight();
    void reconcile();
    void reconciled();
    void noteChange(const SessionSnapshot& sessions);
    void takeRecent(const SessionSnapshot& sessions);

    SearchPorts ports_;
    Surroundings surroundings_;
    Callbacks callbacks_;
    std::unique_ptr<SessionIndex> index_;
    SpotlightIndexer spotlight_;
    std::unique_ptr<SearchPanel> panel_;
    std::unique_ptr<SearchPanelController> controller_;
    LoopHandle changes_;
    std::vector<DiscoveredRow> recent_;
    bool isRead_ = false;               ///< the transcripts have been read once
    std::vector<std::string> waiting_;  ///< addresses that came before that

    /// For work elsewhere to hold weakly; used on the main thread alone.
    const std::shared_ptr<SessionSearch> self_{this, [](SessionSearch*) {}};
};

}  // namespace sonra
