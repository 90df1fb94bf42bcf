#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/MainLoop.h"
#include "platform/SearchPanel.h"
#include "search/SearchHit.h"
#include "search/SessionIndex.h"

namespace sonra {

class Screens;
class WorkerPool;

/// The search box on a global hotkey: what is typed is searched for in the catalogue, and what is
/// chosen is attached for narration.
///
/// Main thread only; the search itself runs on the pool, with inputs that don't change. A result
/// that isn't of the newest query is thrown away, and a keystroke makes every query before it old.
/// Return never takes a row of an older query that the user didn't choose: it waits for the rows.
/// Nor does it take the row that stepped into the place of a selected one that vanished, until the
/// user has had the time to see it or has chosen it.
/// Borrows its ports, which outlive it, and takes the panel's callbacks for itself. Results, the
/// expanded project and the query survive hiding. Nothing here fails but the hotkey, which is said
/// on standard error.
class SearchPanelController {
  public:
    /// What it needs of the service. Set before use; an empty one gives nothing or does nothing.
    struct Callbacks {
        std::function<std::set<std::string>()> currentAttachedIds = {};
        std::function<SessionSnapshot()> snapshot = {};
        std::function<ReconcileProgress()> reconcileProgress = {};
        std::function<void(const std::string& id, const std::string& cwd)> onAttach = {};
        /// Makes a global hotkey that lives as long as what is returned; null if it can't be had.
        /// `onRefused` is for what turns out later.
        std::function<std::shared_ptr<void>(std::uint32_t keyCode, std::uint32_t modifiers,
                                            std::function<void()> onPress,
                                            std::function<void()> onRefused)>
            makeHotkey = {};
    };

    static constexpr double width = 640;
    static constexpr double height = 420;

    /// `clock` gives seconds since 1970.
    SearchPanelController(MainLoop& loop, WorkerPool& workers, Screens& screens, SearchPanel& panel,
                          std::function<double()> clock);
    ~SearchPanelController();
    SearchPanelController(const SearchPanelController&) = delete;
    SearchPanelController& operator=(const SearchPanelController&) = delete;

    void setCallbacks(Callbacks callbacks);

    /// Command and Shift with F; without it, the panel still opens from elsewhere.
    void registerHotkey();
    void toggle();
    /// With a query it is as if that had been typed.
    void open(const std::optional<std::string>& query = {});
    void close();
    /// The catalogue has changed: shows what the query finds now, with the same row selected where
    /// it is still there.
    void refresh();

  private:
    struct Query;

    void connectPanel();
    void noteTyping();
    void obey(SearchPanel::Command command);
    void runQuery();
    void startSearch(bool keepsSelection);
    void accept(const Query& query, std::vector<SearchHit> hits);
    void keepExpanded(std::vector<SearchHit>& hits);
    void reload(const Query& query, const std::vector<SearchHit>& before);
    void showProgress(double query);
    void select(std::optional<std::size_t> row);
    void choose(std::size_t row);
    [[nodiscard]] std::size_t rowToSelect(const Query& query, const std::vector<SearchHit>& before);
    [[nodiscard]] std::optional<std::size_t> rowOf(const SearchHit& hit) const;
    void guardReplacement();
    void activate();
    void moveSelection(int delta);
    void activateSelected();
    void copySelected();
    [[nodiscard]] const SearchHit* selected() const;
    /// A time stamp that no query had before.
    double newStamp();
    [[nodiscard]] Rect frameOnScreen(const Rect& visible) const;

    MainLoop& loop_;
    WorkerPool& workers_;
    Screens& screens_;
    SearchPanel& panel_;
    std::function<double()> clock_;
    Callbacks callbacks_;

    std::shared_ptr<void> hotkey_;
    std::vector<SearchHit> results_;
    std::vector<SearchRow> rows_;  ///< as the panel shows the results
    std::optional<std::size_t> selection_;
    LoopHandle debounceWork_;  ///< only while it hasn't run
    LoopHandle progressCheck_;
    LoopHandle replacementGuard_;     ///< while Return doesn't take the row that is selected
    double lastQueryStarted_ = 0;     ///< seconds since 1970; the newest query's id
    bool areRowsOld_ = false;         ///< they aren't yet what the newest query finds
    bool activatesFirstRow_ = false;  ///< of the newest query, as soon as it is there
    std::optional<std::string> expandedProject_;
    std::set<std::string> attachedIdsForRender_;

    /// For work elsewhere to hold weakly; used on the main thread alone.
    const std::shared_ptr<SearchPanelController> self_{this, [](SearchPanelController*) {}};
};

}  // namespace sonra
