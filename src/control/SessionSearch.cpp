#include "control/SessionSearch.h"

#include <utility>

#include "dictation/GlobalHotkey.h"
#include "frame/ThreadAffinity.h"
#include "frame/WorkerPool.h"

namespace sonra {
namespace {

constexpr std::size_t recentLimit = 8;

DiscoveredRow rowOf(const SessionMeta& session) {
    DiscoveredRow row;
    row.id = session.sessionId;
    row.cwd = session.cwd;
    row.lastText = session.lastAssistantSnippet;
    row.source = session.source;
    row.transcript = session.jsonlPath;
    row.mtimeMs = session.mtime * 1000;
    if (!session.firstUserPrompt.empty()) row.title = session.displayTitle();
    row.branch = session.gitBranch;
    return row;
}

}  // namespace

SessionSearch::SessionSearch(SearchPorts ports, Surroundings surroundings, Callbacks callbacks)
    : ports_(std::move(ports)),
      surroundings_(std::move(surroundings)),
      callbacks_(std::move(callbacks)),
      index_(std::make_unique<SessionIndex>(surroundings_.loop, surroundings_.pool, ports_.tree)),
      spotlight_(surroundings_.loop, ports_.desktopSearch, surroundings_.defaults) {
    makePanel();
    wireSpotlight();
}

SessionSearch::~SessionSearch() = default;

void SessionSearch::makePanel() {
    if (!ports_.makePanel) return;
    panel_ = ports_.makePanel();
    controller_ = std::make_unique<SearchPanelController>(
        surroundings_.loop, surroundings_.pool, surroundings_.screens, *panel_,
        [clock = surroundings_.wallClockMs] { return clock() / 1000; });
    SearchPanelController::Callbacks callbacks;
    callbacks.currentAttachedIds = callbacks_.currentAttachedIds;
    callbacks.snapshot = [this] { return index_->snapshot(); };
    callbacks.reconcileProgress = [this] { return index_->reconcileProgress(); };
    callbacks.onAttach = callbacks_.onAttach;
    if (ports_.hotkeys != nullptr)
        callbacks.makeHotkey =
            [hotkeys = ports_.hotkeys](
                std::uint32_t keyCode, std::uint32_t modifiers, std::function<void()> onPress,
                const std::function<void()>& onRefused) -> std::shared_ptr<void> {
            return GlobalHotkey::make(*hotkeys, keyCode, modifiers, "Search sessions",
                                      std::move(onPress),
                                      [onRefused](const std::string&) { onRefused(); });
        };
    controller_->setCallbacks(std::move(callbacks));
}

void SessionSearch::wireSpotlight() {
    SpotlightIndexer::Callbacks callbacks;
    callbacks.lookup = [self = std::weak_ptr(self_)](const std::string& id) {
        const auto alive = self.lock();
        return alive ? alive->index_->lookup(id) : std::nullopt;
    };
    callbacks.onAttach = callbacks_.onAttach;
    spotlight_.setCallbacks(std::move(callbacks));
}

void SessionSearch::start() {
    SONRA_ASSERT_MAIN_THREAD();
    if (controller_) controller_->registerHotkey();
    index_->bootstrap();
    takeRecent(index_->snapshot());
    changes_ = index_->ttsSessionsChanged(
        [this](const SessionSnapshot& sessions) { noteChange(sessions); });
    reconcile();
}

void SessionSearch::reconcile() {
    spotlight_.purgeLegacyMessageIndex();
    index_->reconcile({}, [&loop = surroundings_.loop, self = std::weak_ptr(self_)] {
        loop.post([self] {
            if (const auto alive = self.lock()) alive->reconciled();
        });
    });
}

void SessionSearch::reconciled() {
    isRead_ = true;
    for (const auto& address : std::exchange(waiting_, {})) spotlight_.openFromURLString(address);
    spotlight_.reindexAll(index_->snapshot());
    index_->startWatching({});
}

void SessionSearch::noteChange(const SessionSnapshot& sessions) {
    spotlight_.update(sessions);
    takeRecent(sessions);
    if (controller_) controller_->refresh();
    if (callbacks_.onRecentChanged) callbacks_.onRecentChanged();
}

void SessionSearch::takeRecent(const SessionSnapshot& sessions) {
    recent_.clear();
    for (const auto& session : sessions) {
        if (recent_.size() == recentLimit) return;
        if (!session.isOfSubAgent()) recent_.push_back(rowOf(session));
    }
}

void SessionSearch::openPanel(const std::optional<std::string>& query) {
    SONRA_ASSERT_MAIN_THREAD();
    if (controller_) controller_->open(query);
}

bool SessionSearch::openFromURLString(const std::string& text) {
    const auto address = SpotlightIndexer::parseURL(text);
    if (!address) return false;
    const bool mayBeFoundYet = !isRead_ && !index_->lookup(address->sessionId);
    if (!mayBeFoundYet) return spotlight_.openFromURLString(text);
    waiting_.push_back(text);
    return true;
}

std::optional<std::string> SessionSearch::transcriptOf(const std::string& id) const {
    const auto session = index_->lookup(id);
    if (!session) return std::nullopt;
    return session->jsonlPath;
}

}  // namespace sonra
