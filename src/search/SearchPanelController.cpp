#include "search/SearchPanelController.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

#include "frame/ForeignTexts.h"
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
/// Whoever saw the row before presses Return sooner.
constexpr auto timeToNotice = std::chrono::seconds(1);
/// Of the screen's height, from below.
constexpr double bottomShare = 0.62;

/// `start` moved so that `length` lies within the range if it can; else at the range's start.
double within(double start, double length, double rangeStart, double rangeLength) {
    return std::max(rangeStart, std::min(start, rangeStart + rangeLength - length));
}

bool isSame(const SearchHit& one, const SearchHit& other) {
    if (one.index() != other.index()) return false;
    if (const auto* project = std::get_if<ProjectHit>(&one))
        return project->name == std::get<ProjectHit>(other).name;
    const auto& session = *std::get<SessionHit>(one).session;
    const auto& otherSession = *std::get<SessionHit>(other).session;
    return session.sessionId == otherSession.sessionId &&
           session.jsonlPath == otherSession.jsonlPath;
}

bool isOfProject(const SearchHit& hit, const std::string& name) {
    if (const auto* project = std::get_if<ProjectHit>(&hit)) return project->name == name;
    return SearchRows::folderOf(*std::get<SessionHit>(hit).session) == name;
}

void reportRefusal() {
    std::fputs(foreigntexts::searchHotkeyFailed, stderr);
}

}  // namespace

/// What a search is made from, and what its result is shown with.
struct SearchPanelController::Query {
    double id;
    std::string text;
    SessionSnapshot snapshot;
    std::set<std::string> attachedIds;
    bool keepsSelection;
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
    panel_.onSelect = [this](std::size_t row) { choose(row); };
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
    activatesFirstRow_ = false;
    panel_.orderOut();
}

void SearchPanelController::refresh() {
    SONRA_ASSERT_MAIN_THREAD();
    // What is about to be searched for is searched for in the newest catalogue anyway.
    if (panel_.isVisible() && !debounceWork_) startSearch(!areRowsOld_);
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
    areRowsOld_ = true;
    activatesFirstRow_ = false;
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
            return activate();
        case SearchPanel::Command::copy:
            return copySelected();
    }
}

double SearchPanelController::newStamp() {
    constexpr auto end = std::numeric_limits<double>::infinity();
    return std::max(clock_(), std::nextafter(lastQueryStarted_, end));
}

void SearchPanelController::runQuery() {
    debounceWork_.cancel();
    replacementGuard_.cancel();
    areRowsOld_ = true;
    startSearch(false);
}

void SearchPanelController::startSearch(bool keepsSelection) {
    lastQueryStarted_ = newStamp();
    Query query{
        lastQueryStarted_, std::string(text::trimmed(panel_.query())),
        callbacks_.snapshot ? callbacks_.snapshot() : SessionSnapshot(),
        callbacks_.currentAttachedIds ? callbacks_.currentAttachedIds() : std::set<std::string>(),
        keepsSelection};
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
    keepExpanded(hits);
    const auto before = std::exchange(results_, std::move(hits));
    attachedIdsForRender_ = query.attachedIds;
    areRowsOld_ = false;
    reload(query, before);
    if (std::exchange(activatesFirstRow_, false) && panel_.isVisible()) activateSelected();
}

/// A project that has nothing left is open no more: there is no row to close it by.
void SearchPanelController::keepExpanded(std::vector<SearchHit>& hits) {
    if (!expandedProject_) return;
    const auto isOther = [this](const auto& hit) { return !isOfProject(hit, *expandedProject_); };
    if (std::ranges::all_of(hits, isOther))
        expandedProject_.reset();
    else
        std::erase_if(hits, isOther);
}

void SearchPanelController::reload(const Query& query, const std::vector<SearchHit>& before) {
    const auto now = clock_();
    std::vector<SearchRow> rows;
    rows.reserve(results_.size());
    for (const auto& hit : results_)
        rows.push_back(
            SearchRows::row(hit, attachedIdsForRender_, expandedProject_.value_or(""), now));
    if (rows.empty())
        panel_.setEmptyText(SearchRows::emptyState(query.text, query.snapshot.empty()));
    // Nothing moves for a change that isn't to be seen.
    if (query.keepsSelection && rows == rows_) return select(selection_);
    panel_.setRows(rows);
    select(rows.empty() ? std::nullopt : std::optional(rowToSelect(query, before)));
    if (!rows.empty()) panel_.select(selection_);
    rows_ = std::move(rows);
}

/// In place of a row that vanished the next one that is still there, or else the one before it.
std::size_t SearchPanelController::rowToSelect(const Query& query,
                                               const std::vector<SearchHit>& before) {
    if (!query.keepsSelection || !selection_ || *selection_ >= before.size()) return 0;
    const auto was = *selection_;
    if (const auto same = rowOf(before[was])) return *same;
    guardReplacement();
    for (auto next = was + 1; next < before.size(); ++next)
        if (const auto row = rowOf(before[next])) return *row;
    for (auto previous = was; previous > 0; --previous)
        if (const auto row = rowOf(before[previous - 1])) return *row;
    return std::min(was, results_.size() - 1);
}

std::optional<std::size_t> SearchPanelController::rowOf(const SearchHit& hit) const {
    const auto same =
        std::ranges::find_if(results_, [&](const auto& other) { return isSame(other, hit); });
    if (same == results_.end()) return std::nullopt;
    return static_cast<std::size_t>(same - results_.begin());
}

void SearchPanelController::guardReplacement() {
    replacementGuard_ = loop_.after(timeToNotice, [this] { replacementGuard_.cancel(); });
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

/// Whoever chooses a row means the one that is shown, whatever is being searched for.
void SearchPanelController::choose(std::size_t row) {
    areRowsOld_ = false;
    replacementGuard_.cancel();
    select(row);
}

void SearchPanelController::moveSelection(int delta) {
    if (results_.empty()) return;
    const auto last = static_cast<std::ptrdiff_t>(results_.size()) - 1;
    const auto current = static_cast<std::ptrdiff_t>(selection_.value_or(0));
    choose(static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(current + delta, 0, last)));
    panel_.select(selection_);
}

void SearchPanelController::activate() {
    if (!areRowsOld_) {
        if (!replacementGuard_) activateSelected();
        return;
    }
    activatesFirstRow_ = true;
    if (debounceWork_) runQuery();
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
