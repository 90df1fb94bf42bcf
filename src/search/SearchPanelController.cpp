#include "search/SearchPanelController.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "frame/WorkerPool.h"
#include "platform/Screens.h"
#include "search/SearchRows.h"
#include "search/Searcher.h"

namespace sonra {
namespace {

constexpr std::uint32_t keyCodeF = 3;
constexpr std::uint32_t commandAndShift = 768;
constexpr auto debounce = std::chrono::milliseconds(80);
constexpr auto progressDelay = std::chrono::milliseconds(500);
/// Of the screen's height, from below.
constexpr double bottomShare = 0.62;

/// `start` moved so that `length` lies within the range if it can; else at the range's start.
double within(double start, double length, double rangeStart, double rangeLength) {
    return std::max(rangeStart, std::min(start, rangeStart + rangeLength - length));
}

bool isOfProject(const SearchHit& hit, const std::string& name) {
    if (const auto* project = std::get_if<ProjectHit>(&hit)) return project->name == name;
    return SearchRows::folderOf(*std::get<SessionHit>(hit).session) == name;
}

void reportRefusal() {
    std::fputs("[search] failed to register ⌘⇧F\n", stderr);
}

}  // namespace

/// What a search is made from, and what its result is shown with.
struct SearchPanelController::Query {
    double id;
    std::string text;
    SessionSnapshot snapshot;
    std::set<std::string> attachedIds;
};

SearchPanelController::SearchPanelController(MainLoop& loop, WorkerPool& workers, Screens& screens,
                                             SearchPanel& panel, std::function<double()> clock)
    : loop_(loop), workers_(workers), screens_(screens), panel_(panel), clock_(std::move(clock)) {
    SONRA_ASSERT_MAIN_THREAD();
    connectPanel();
}

SearchPanelController::~SearchPanelController() {
    panel_.onQueryChanged = nullptr;
    panel_.onCommand = nullptr;
    panel_.onSelect = nullptr;
}

void SearchPanelController::setCallbacks(Callbacks callbacks) {
    callbacks_ = std::move(callbacks);
}

void SearchPanelController::connectPanel() {
    panel_.onQueryChanged = [this] { noteTyping(); };
    panel_.onCommand = [this](SearchPanel::Command command) { obey(command); };
    panel_.onSelect = [this](std::size_t row) { select(row); };
}

void SearchPanelController::registerHotkey() {
    SONRA_ASSERT_MAIN_THREAD();
    hotkey_.reset();
    if (callbacks_.makeHotkey)
        hotkey_ = callbacks_.makeHotkey(
            keyCodeF, commandAndShift, [this] { toggle(); }, reportRefusal);
    if (!hotkey_) reportRefusal();
}

void SearchPanelController::toggle() {
    if (panel_.isVisible())
        close();
    else
        open();
}

void SearchPanelController::open(const std::optional<std::string>& query) {
    SONRA_ASSERT_MAIN_THREAD();
    if (query) {
        expandedProject_.reset();
        panel_.setQuery(*query);
    }
    debounceWork_.cancel();
    if (const auto visible = screens_.mainVisibleFrame()) panel_.setFrame(frameOnScreen(*visible));
    panel_.activate();
    runQuery();
}

void SearchPanelController::close() {
    SONRA_ASSERT_MAIN_THREAD();
    panel_.orderOut();
}

Rect SearchPanelController::frameOnScreen(const Rect& visible) const {
    const double x = visible.origin.x + visible.size.width / 2 - width / 2;
    const double bottom = visible.origin.y + visible.size.height * (1 - bottomShare);
    return {{within(x, width, visible.origin.x, visible.size.width),
             within(bottom - height, height, visible.origin.y, visible.size.height)},
            {width, height}};
}

void SearchPanelController::noteTyping() {
    SONRA_ASSERT_MAIN_THREAD();
    expandedProject_.reset();
    // What is still being searched for is no longer what the field says.
    lastQueryStarted_ = newStamp();
    debounceWork_ = loop_.after(debounce, [this] { runQuery(); });
}

void SearchPanelController::obey(SearchPanel::Command command) {
    SONRA_ASSERT_MAIN_THREAD();
    switch (command) {
        case SearchPanel::Command::moveDown:
            return moveSelection(1);
        case SearchPanel::Command::moveUp:
            return moveSelection(-1);
        case SearchPanel::Command::cancel:
            return close();
        case SearchPanel::Command::activate:
            return activateSelected();
        case SearchPanel::Command::copy:
            return copySelected();
    }
}

double SearchPanelController::newStamp() {
    constexpr auto end = std::numeric_limits<double>::infinity();
    return std::max(clock_(), std::nextafter(lastQueryStarted_, end));
}

void SearchPanelController::runQuery() {
    lastQueryStarted_ = newStamp();
    Query query{
        lastQueryStarted_, std::string(text::trimmed(panel_.query())),
        callbacks_.snapshot ? callbacks_.snapshot() : SessionSnapshot(),
        callbacks_.currentAttachedIds ? callbacks_.currentAttachedIds() : std::set<std::string>()};
    progressCheck_ = loop_.after(progressDelay, [this, id = query.id] { showProgress(id); });
    workers_.post([&loop = loop_, weak = std::weak_ptr(self_), query = std::move(query)] {
        auto hits = Searcher::search(query.snapshot, query.text, query.attachedIds);
        loop.post([weak, query, hits = std::move(hits)] {
            if (const auto self = weak.lock()) self->accept(query, hits);
        });
    });
}

void SearchPanelController::accept(const Query& query, std::vector<SearchHit> hits) {
    if (query.id != lastQueryStarted_) return;
    if (expandedProject_)
        std::erase_if(hits,
                      [this](const auto& hit) { return !isOfProject(hit, *expandedProject_); });
    results_ = std::move(hits);
    attachedIdsForRender_ = query.attachedIds;
    reload(query);
}

void SearchPanelController::reload(const Query& query) {
    const auto now = clock_();
    std::vector<SearchRow> rows;
    rows.reserve(results_.size());
    for (const auto& hit : results_)
        rows.push_back(
            SearchRows::row(hit, attachedIdsForRender_, expandedProject_.value_or(""), now));
    if (rows.empty())
        panel_.setEmptyText(SearchRows::emptyState(query.text, query.snapshot.empty()));
    panel_.setRows(rows);
    select(rows.empty() ? std::nullopt : std::optional<std::size_t>(0));
    if (!rows.empty()) panel_.select(selection_);
}

void SearchPanelController::showProgress(double query) {
    if (query != lastQueryStarted_ || !callbacks_.reconcileProgress) return;
    const auto progress = callbacks_.reconcileProgress();
    panel_.setScanningStrip(progress.inFlight ? SearchRows::scanningStrip(progress) : "");
}

/// The selection is what the user sees; the hints follow it.
void SearchPanelController::select(std::optional<std::size_t> row) {
    selection_ = row;
    const auto* hit = selected();
    panel_.setFooter(SearchRows::footer(hit));
    if (hit) panel_.setScanningStrip("");
}

void SearchPanelController::moveSelection(int delta) {
    if (results_.empty()) return;
    const auto last = static_cast<std::ptrdiff_t>(results_.size()) - 1;
    const auto current = static_cast<std::ptrdiff_t>(selection_.value_or(0));
    select(static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(current + delta, 0, last)));
    panel_.select(selection_);
}

void SearchPanelController::activateSelected() {
    const auto* hit = selected();
    if (!hit) return;
    if (const auto* project = std::get_if<ProjectHit>(hit)) {
        if (expandedProject_ == project->name)
            expandedProject_.reset();
        else
            expandedProject_ = project->name;
        return runQuery();
    }
    const auto session = std::get<SessionHit>(*hit).session;
    panel_.orderOut();
    if (callbacks_.onAttach) callbacks_.onAttach(session->sessionId, session->cwd);
}

void SearchPanelController::copySelected() {
    const auto* hit = selected();
    if (const auto* session = hit ? std::get_if<SessionHit>(hit) : nullptr)
        panel_.copy(session->session->sessionId);
}

const SearchHit* SearchPanelController::selected() const {
    return selection_ && *selection_ < results_.size() ? &results_[*selection_] : nullptr;
}

}  // namespace sonra
