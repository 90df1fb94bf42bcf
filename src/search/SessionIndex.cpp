#include "search/SessionIndex.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <utility>

#include "frame/Home.h"
#include "frame/ThreadAffinity.h"
#include "search/SessionIndexState.h"

namespace sonra {

SessionIndex::SessionIndex(MainLoop& loop, WorkerPool& workers, TreeWatcher& watcher,
                           SessionIndexStore store)
    : state_(std::make_shared<State>(loop, workers, watcher, std::move(store))) {
    SONRA_ASSERT_MAIN_THREAD();
}

SessionIndex::~SessionIndex() {
    SONRA_ASSERT_MAIN_THREAD();
    state_->release();
}

void SessionIndex::bootstrap() {
    state_->bootstrap();
}

void SessionIndex::reconcile(std::optional<std::string> projectsRoot,
                             std::function<void()> completion) {
    state_->reconcile(std::move(projectsRoot), std::move(completion));
}

void SessionIndex::startWatching(std::optional<std::string> projectsRoot) {
    state_->startWatching(std::move(projectsRoot));
}

void SessionIndex::stopWatching() {
    state_->stopWatching();
}

SessionSnapshot SessionIndex::snapshot() const {
    return state_->snapshot();
}

std::optional<SessionMeta> SessionIndex::lookup(const std::string& sessionId) const {
    return state_->lookup(sessionId);
}

ReconcileProgress SessionIndex::reconcileProgress() const {
    return state_->progress();
}

void SessionIndex::applyTouched(std::vector<std::string> paths) {
    state_->applyTouched(std::move(paths));
}

LoopHandle SessionIndex::ttsSessionsChanged(Listener listener) {
    SONRA_ASSERT_MAIN_THREAD();
    return state_->addListener(std::move(listener));
}

std::string SessionIndex::defaultProjectsRoot() {
    return homeDirectory() + "/.claude/projects";
}

std::string SessionIndex::canonicalize(const std::string& path) {
    std::array<char, PATH_MAX> resolved{};
    return ::realpath(path.c_str(), resolved.data()) == nullptr ? path : resolved.data();
}

}  // namespace sonra
