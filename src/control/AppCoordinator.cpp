#include "control/AppCoordinator.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "control/CtlRunner.h"
#include "control/KokoroSynth.h"
#include "control/LoginItem.h"
#include "control/QuitTeardownPlan.h"
#include "control/ResynthVoice.h"
#include "frame/CtlInvocation.h"
#include "frame/ServiceState.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

using History = MessageHistoryQueueState;

constexpr std::chrono::milliseconds snapshotDelay{20};

SpeechConfig configOf(const ServiceState& state) {
    return {{VoiceID::Namespace::kokoro, state.voice}, state.speed, static_cast<int>(state.volume)};
}

float gainOf(std::int64_t percent) {
    return static_cast<float>(std::clamp<std::int64_t>(percent, 0, 100)) / 100.0F;
}

NowPlayingSnapshotWriter::Cursor snapshotCursor(const History::Cursor& cursor) {
    if (const auto* history = std::get_if<History::History>(&cursor))
        return NowPlayingSnapshotWriter::History{history->messageIndex, history->totalKnown};
    if (std::holds_alternative<History::Live>(cursor)) return NowPlayingSnapshotWriter::Live{};
    return NowPlayingSnapshotWriter::Idle{};
}

}  // namespace

AppCoordinator::AppCoordinator(std::string socketPath, Platform platform, Speech speech)
    : socketPath_(std::move(socketPath)),
      platform_(std::move(platform)),
      speech_(std::move(speech)),
      nowPlayingSnapshot_(std::make_shared<NowPlayingSnapshotWriter>()),
      queue_(std::make_unique<AudioQueue>(platform_.loop, platform_.players, platform_.pool,
                                          platform_.nowPlaying, nowPlayingSnapshot_)),
      messageHistoryQueue_(std::make_unique<MessageHistoryQueue>(platform_.loop, platform_.pool)),
      captionWindow_(std::make_unique<CaptionWindow>(
          platform_.loop, platform_.defaults, platform_.screens, platform_.makeCaptionPanel)),
      menuBar_(std::make_unique<MenuBarController>(platform_.statusItem, platform_.wallClockMs)),
      ipc_(std::make_unique<IPCServer>(platform_.loop, socketPath_)),
      daemon_(platform_.loop),
      log_(Log::shared().child({{"class", "AppCoordinator"}})) {}

AppCoordinator::~AppCoordinator() = default;

bool AppCoordinator::start() {
    SONRA_ASSERT_MAIN_THREAD();
    speech_.synthesizer->kokoro()->warmup();
    wireHistory();
    installRemoteCommandHandlers();
    wireCaptions();
    applyHistoryState();
    wireQueue();
    wireSearch();
    wireMenu();
    wireSessions();
    wireTransport();
    wireHistoryCommands();
    wireCaptionCommands();
    wireSessionCommands();
    search_->start();
    applyState();
    ipc_->onCommand = whileAlive<const Json&>(
        [](AppCoordinator& self, const Json& message) { self.handleIPC(message); });
    if (!ipc_->start()) return false;
    // It finds the sessions and serves the phone; nobody has to know that there are two programs.
    daemon_.start();
    stateTimer_ = platform_.loop.every(stateInterval,
                                       whileAlive([](AppCoordinator& self) { self.applyState(); }));
    prewarmKokoro();
    return true;
}

void AppCoordinator::shutDown() {
    daemon_.stop();
    ipc_->unlinkSocket();
}

void AppCoordinator::handleIPC(const Json& message) {
    SONRA_ASSERT_MAIN_THREAD();
    commands_.handle(message);
}

/// The voice for the sessions, and behind each message the end of what onSynthesisStart began.
NarrationPump::Synth AppCoordinator::makeSynth() {
    auto speak = NativeNarration::makeKokoroSynth(speech_.synthesizer->kokoro(), speech_.worker,
                                                  [] { return configOf(ServiceState::read()); });
    return [weak = weak_from_this(), &loop = platform_.loop, speak = std::move(speak)](
               const std::string& text, const std::string& sessionId, const std::string& messageId,
               const NarrationPump::OnChunk& onChunk) {
        speak(text, sessionId, messageId, onChunk);
        loop.post([weak] {
            if (const auto self = weak.lock()) self->onSynthesisEnd();
        });
    };
}

void AppCoordinator::onChunkStart(const AudioChunk& chunk, int index, int total) {
    if (ServiceState::read().synthesizing)
        ServiceState::update([](Json& document) { document["synthesizing"] = false; });
    lastSnippet_ = chunk.text.empty() ? chunk.albumLine : chunk.text;
    nowPlayingSnapshot_->updateSnippet(lastSnippet_);
    captions_->chunkStarted(lastSnippet_, index, total);
    showWhetherNavigable();
    refreshMenuBar();
}

void AppCoordinator::onIdle() {
    captions_->queueIdle();
    showWhetherNavigable();
    retireRemoteIfOver();
    refreshMenuBar();
}

void AppCoordinator::onSynthesisStart() {
    ++synthesesUnderWay_;
    tellSynthesizing();
    captions_->synthesisBegan();
    menuBar_->setSynthesizing(true);
}

/// A message that was under way at the last detach may have brought the worker up once more.
void AppCoordinator::onSynthesisEnd() {
    --synthesesUnderWay_;
    tellSynthesizing();
    menuBar_->setSynthesizing(isSynthesizing());
    if (isSynthesizing()) return;
    captions_->synthesisEnded(queueStatus());
    if (!sessions_->isNarrating()) stopWorkerUnlessAttached();
}

/// A moment later: replacing a file can take as long as a quick voice does, and the sound comes
/// first.
void AppCoordinator::tellSynthesizing() {
    synthesizingTeller_ = platform_.loop.after(
        snapshotDelay, [this] { nowPlayingSnapshot_->updateSynthesizing(isSynthesizing()); });
}

NarrationStatus AppCoordinator::queueStatus() const {
    if (queue_->paused()) return NarrationStatus::paused(static_cast<int>(queue_->queuedCount()));
    return {queue_->current() == nullptr ? NarrationStatus::Phase::idle
                                         : NarrationStatus::Phase::playing};
}

/// A new attach starts unpaused, also after a pause that an earlier run left behind.
void AppCoordinator::onNewAttach(const AttachRequest& request) {
    ++*attaches_;
    captions_->sessionAttached();
    offerSession(request);
    captions_->sessionReady();
    prewarmKokoro();
    if (!ServiceState::read().paused) return;
    ServiceState::update([](Json& document) { document["paused"] = false; });
    queue_->setPaused(false);
}

void AppCoordinator::setSession(const AttachRequest& request) {
    messageHistoryQueue_->setSynth(
        makeResynthSynth(speech_.resynth, [] { return configOf(ServiceState::read()); }));
    messageHistoryQueue_->setSession(
        request.transcript, historySource(request.source).value_or(HistorySource::claudeCode));
    pagedSession_ = request.id;
}

/// The history is the new session's, unless the listener is back in another one's: he isn't torn
/// out of it, and the next that he hears decides.
void AppCoordinator::offerSession(const AttachRequest& request) {
    const auto& focused = messageHistoryQueue_->focusedSessionId();
    const bool isBack =
        std::holds_alternative<History::History>(messageHistoryQueue_->state().cursor);
    if (!isBack || focused == request.id || !sessions_->isNarrating(focused)) setSession(request);
}

void AppCoordinator::recordLive(const AudioChunk& chunk) {
    messageHistoryQueue_->recordLive(chunk);
    followFocus();
}

/// With several sessions attached, going back leads through the one that is being heard.
void AppCoordinator::followFocus() {
    const auto& focused = messageHistoryQueue_->focusedSessionId();
    if (focused == pagedSession_) return;
    if (const auto request = sessions_->narrated(focused)) setSession(*request);
}

/// The queue plays out what it holds; the worker is no longer needed.
void AppCoordinator::onLastDetach() {
    transport_->cancelColdResolve();
    speech_.synthesizer->kokoro()->cancelCurrent();
    messageHistoryQueue_->clearAll();
    retireRemoteIfOver();
    stopWorkerUnlessAttached();
}

void AppCoordinator::stopWorkerUnlessAttached() {
    platform_.pool.post([worker = speech_.worker, attaches = attaches_, seen = attaches_->load()] {
        if (*attaches == seen) worker->stop();
    });
}

void AppCoordinator::applyPauseState(bool paused) {
    if (queue_->paused() == paused) return;
    queue_->setPaused(paused);
    ServiceState::update([paused](Json& document) { document["paused"] = paused; });
    refreshMenuBar();
}

void AppCoordinator::next() {
    transport_->next();
    noteSkip();
}

/// A skip in a pause starts nothing and ends nothing, so that nobody else tells of it.
void AppCoordinator::noteSkip() {
    showWhetherNavigable();
    if (queue_->paused()) captions_->queuePaused(queue_->queuedCount());
    refreshMenuBar();
}

/// Tells the desktop, the captions and the snapshot where the listener stands.
void AppCoordinator::applyHistoryState() {
    const auto& state = messageHistoryQueue_->state();
    captions_->historyChanged(state);
    const auto counts = messageHistoryQueue_->liveTimelineCounts();
    nowPlayingSnapshot_->updateCursor({messageHistoryQueue_->focusedSessionId(),
                                       snapshotCursor(state.cursor), state.newLiveMessageCount,
                                       counts.messageIndex, counts.totalMessages});
    showWhetherNavigable();
}

void AppCoordinator::showWhetherNavigable() {
    if (platform_.remoteCommands != nullptr)
        platform_.remoteCommands->setCanNavigate(transport_->canNavigate());
}

void AppCoordinator::setVolume(std::int64_t percent) {
    const auto bounded = std::clamp<std::int64_t>(percent, 0, 100);
    queue_->setVolume(gainOf(bounded));
    ServiceState::update([bounded](Json& document) { document["volume"] = bounded; });
    if (platform_.remoteCommands != nullptr) platform_.remoteCommands->setVolume(gainOf(bounded));
    refreshMenuBar();
}

void AppCoordinator::setSpeed(double speed) {
    ServiceState::update([speed](Json& document) { document["speed"] = speed; });
    captionWindow_->setSpeed(speed);
    refreshMenuBar();
}

void AppCoordinator::toggleMute() {
    const bool muted = !queue_->muted();
    queue_->setMuted(muted);
    ServiceState::update([muted](Json& document) { document["muted"] = muted; });
    refreshMenuBar();
}

void AppCoordinator::seekTo(double fraction) {
    if (const auto* player = queue_->current()) queue_->seek(fraction * player->duration());
}

void AppCoordinator::clearEverything() {
    transport_->cancelColdResolve();
    queue_->clear();
    messageHistoryQueue_->clearAll();
    retireRemoteIfOver();
}

/// With nothing to go back to and nothing playing, the desktop has nothing to show.
void AppCoordinator::retireRemoteIfOver() {
    const bool over = queue_->current() == nullptr &&
                      std::holds_alternative<History::Idle>(messageHistoryQueue_->state().cursor);
    if (over && platform_.remoteCommands != nullptr) platform_.remoteCommands->retire();
}

void AppCoordinator::refreshMenuBar(const std::optional<StateTick>& given) {
    auto tick = given ? *given : StateTick::read();
    MenuBarController::Picture picture;
    picture.state = tick.state;
    picture.isPlaying = queue_->isCurrentlyPlaying();
    picture.isSynthesizing = isSynthesizing();
    picture.currentSnippet = lastSnippet_;
    picture.sessions = std::move(tick.sessions.attached);
    picture.discovered = std::move(tick.sessions.discovered);
    picture.recent = search_->recentSessionsForMenu();
    picture.isLaunchAgentInstalled = isLaunchAgentInstalled();
    menuBar_->reflect(std::move(picture));
}

void AppCoordinator::applyState() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto tick = StateTick::read();
    queue_->setVolume(gainOf(tick.state.volume));
    queue_->setMuted(tick.state.muted);
    if (platform_.remoteCommands != nullptr)
        platform_.remoteCommands->setVolume(gainOf(tick.state.volume));
    if (queue_->paused() != tick.state.paused) queue_->setPaused(tick.state.paused);
    captions_->follow(tick);
    if (tick.hasDocument) sessions_->follow(tick.sessions);
    refreshMenuBar(tick);
    maybeAutoAttachSoleSession(tick);
}

void AppCoordinator::maybeAutoAttachSoleSession(const StateTick& tick) {
    if (sessions_->userDetachedThisRun()) return;
    const auto row = SessionRows::soleAutoAttachCandidate(
        tick.sessions.attached, tick.sessions.discovered, platform_.wallClockMs());
    if (!row) return;
    AttachRequest request{row->id, row->cwd, row->transcript, row->source, row->branch, row->title};
    // What couldn't be served may be another time; a row that is already there stays.
    if (row == passedOver_ && (passedOverForGood_ || !sessions_->canServe(request))) return;
    log_.info("auto-attach sole session",
              {{"input", {{"sessionId", row->id}, {"source", row->source}}}});
    const auto outcome = attachSessionLocal(std::move(request));
    passedOverForGood_ = outcome == AttachOutcome::unchanged;
    passedOver_ = passedOverForGood_ || outcome == AttachOutcome::refused ? row : std::nullopt;
}

void AppCoordinator::attachSession(const std::string& id, const std::string& cwd) {
    AttachRequest request{id, cwd, "", "claude-code", "", ""};
    // The folder's name doesn't always tell where a session lies: it may have been moved.
    if (!sessions_->canServe(request)) request.transcript = search_->transcriptOf(id).value_or("");
    attachSessionLocal(std::move(request));
}

bool AppCoordinator::openURL(const std::string& url) {
    SONRA_ASSERT_MAIN_THREAD();
    return search_->openFromURLString(url);
}

void AppCoordinator::openSearchPanel(const std::optional<std::string>& query) {
    SONRA_ASSERT_MAIN_THREAD();
    search_->openPanel(query);
}

AttachOutcome AppCoordinator::attachSessionLocal(AttachRequest request) {
    const auto outcome = sessions_->attach(std::move(request));
    refreshMenuBar();
    return outcome;
}

void AppCoordinator::detachSessionLocal(const std::string& id) {
    sessions_->detach(id);
    refreshMenuBar();
}

/// Brings the voice up ahead of need, off the main thread.
void AppCoordinator::prewarmKokoro() {
    if (CtlInvocation::ctlSpawnDisabled()) return captions_->voiceReady(queueStatus());
    // One is enough: it blocks a thread of the pool for as long as a model takes to load.
    if (!prewarming_->exchange(true))
        platform_.pool.post([worker = speech_.worker, prewarming = prewarming_,
                             &loop = platform_.loop, weak = weak_from_this()] {
            worker->startAndWaitReady();
            *prewarming = false;
            loop.post([weak] {
                if (const auto self = weak.lock()) self->captions_->voiceReady(self->queueStatus());
            });
        });
    speech_.synthesizer->kokoro()->warmup();
}

/// The user's own wish to quit: in good order, but within the watchdog's time.
void AppCoordinator::quit() {
    armWatchdog();
    speech_.worker->stop();
    // First: a start that is still under way would find nobody stopped, and go on.
    daemon_.stop();
    runCtl({"stop-daemon"});
    platform_.loop.post([exit = platform_.exit] { exit(0); });
}

/// Once: a second wish to quit doesn't put the end off.
void AppCoordinator::armWatchdog() {
    if (watchdog_.joinable()) return;
    watchdog_ = std::jthread([exitAtOnce = platform_.exitAtOnce](const std::stop_token& stop) {
        std::mutex mutex;
        std::unique_lock lock(mutex);
        std::condition_variable_any ended;
        ended.wait_for(lock, stop, QuitTeardownPlan::watchdogDeadline, [] { return false; });
        if (!stop.stop_requested()) exitAtOnce(0);
    });
}

}  // namespace sonra
