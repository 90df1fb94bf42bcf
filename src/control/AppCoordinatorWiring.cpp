#include "control/AppCoordinator.h"
#include "control/CommandArguments.h"
#include "control/CtlRunner.h"
#include "control/LoginItem.h"
#include "frame/CtlInvocation.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
void AppCoordinator::wireQueue() {
    AudioQueue::Callbacks callbacks;
    callbacks.onChunkStart = whileAlive<const AudioChunk&, int, int>(
        [](AppCoordinator& self, const AudioChunk& chunk, int index, int total) {
            self.onChunkStart(chunk, index, total);
        });
    callbacks.onProgress =
        whileAlive<double, double>([](AppCoordinator& self, double elapsed, double duration) {
            self.captions_->progressed(elapsed, duration);
        });
    callbacks.onIdle = whileAlive([](AppCoordinator& self) { self.onIdle(); });
    callbacks.onSpectrum = whileAlive<const AudioQueue::Bands&, const AudioQueue::Bands&>(
        [](AppCoordinator& self, const AudioQueue::Bands& levels, const AudioQueue::Bands& peaks) {
            self.captionWindow_->updateSpectrum(levels, peaks);
        });
    callbacks.onPaused = whileAlive<std::size_t>(
        [](AppCoordinator& self, std::size_t queued) { self.captions_->queuePaused(queued); });
    callbacks.onResumed = whileAlive([](AppCoordinator& self) {
        self.captions_->queueResumed(self.queue_->current() != nullptr ||
                                     self.queue_->queuedCount() > 0);
    });
    queue_->setCallbacks(std::move(callbacks));
}

void AppCoordinator::wireHistory() {
    auto& history = *messageHistoryQueue_;
    history.setOnStateChange(
        [weak = weak_from_this(), &loop = platform_.loop](const MessageHistoryQueueState&) {
            loop.post([weak] {
                if (const auto self = weak.lock()) self->applyHistoryState();
            });
        });
    history.setAudioProbe([weak = weak_from_this()]() -> AudioProbe {
        const auto self = weak.lock();
        if (!self) return {};
        const auto& queue = *self->queue_;
        const auto* player = queue.current();
        return {player == nullptr ? 0 : player->currentTime(), queue.chunkIndexThisTurn(),
                queue.totalChunksThisTurn()};
    });
    transport_ = std::make_unique<HistoryTransport>(
        *queue_, history, speech_.resynth,
        whileAlive<const std::string&>(
            [](AppCoordinator& self, const std::string& text) { self.captions_->showText(text); }));
}

void AppCoordinator::wireSessions() {
    NarrationSessions::Callbacks callbacks;
    callbacks.synth = makeSynth();
    callbacks.recordLive = whileAlive<const AudioChunk&>(
        [](AppCoordinator& self, const AudioChunk& chunk) { self.recordLive(chunk); });
    callbacks.enqueue = whileAlive<const AudioChunk&>(
        [](AppCoordinator& self, const AudioChunk& chunk) { self.queue_->enqueue(chunk); });
    callbacks.onSynthesisStart = whileAlive<const std::string&, const std::string&>(
        [](AppCoordinator& self, const std::string&, const std::string&) {
            self.onSynthesisStart();
        });
    callbacks.onNewAttach = [this](const AttachRequest& request) { onNewAttach(request); };
    callbacks.onResume = [this](const AttachRequest& request) { offerSession(request); };
    callbacks.onDetach = [this] { captions_->sessionDetached(); };
    callbacks.onLastDetach = [this] { onLastDetach(); };
    callbacks.wallClockMs = platform_.wallClockMs;
    sessions_ = std::make_unique<NarrationSessions>(platform_.loop, platform_.files, platform_.pool,
                                                    std::move(callbacks));
}

void AppCoordinator::wireCaptions() {
    auto& window = *captionWindow_;
    captions_ = std::make_unique<CaptionPresenter>(
        platform_.loop, window, whileAlive([](AppCoordinator& self) { self.refreshMenuBar(); }));
    window.onPlayPause =
        whileAlive([](AppCoordinator& self) { self.applyPauseState(!self.queue_->paused()); });
    window.onSkip = whileAlive([](AppCoordinator& self) { self.next(); });
    window.onRestart = whileAlive([](AppCoordinator& self) { self.transport_->previous(); });
    window.onClose = whileAlive([](AppCoordinator& self) { self.captions_->closed(); });
    window.onSeek =
        whileAlive<double>([](AppCoordinator& self, double fraction) { self.seekTo(fraction); });
    window.onJumpToLive = whileAlive([](AppCoordinator& self) { self.transport_->jumpToLive(); });
}

void AppCoordinator::wireSearch() {
    SessionSearch::Callbacks callbacks;
    callbacks.currentAttachedIds = [weak = weak_from_this()] {
        const auto self = weak.lock();
        return self ? self->sessions_->attachedIds() : std::set<std::string>();
    };
    callbacks.onAttach = whileAlive<const std::string&, const std::string&>(
        [](AppCoordinator& self, const std::string& id, const std::string& cwd) {
            self.attachSession(id, cwd);
        });
    callbacks.onRecentChanged = whileAlive([](AppCoordinator& self) { self.refreshMenuBar(); });
    search_ = std::make_unique<SessionSearch>(
        platform_.search,
        SessionSearch::Surroundings{platform_.loop, platform_.pool, platform_.screens,
                                    platform_.defaults, platform_.wallClockMs},
        std::move(callbacks));
    commands_.add("open", [this](const Json& message) {
        for (const auto& url : CommandArguments::openedUrls(message)) openURL(url);
    });
    if (search_->hasPanel()) commands_.add("search", [this](const Json&) { openSearchPanel(); });
}

void AppCoordinator::wireMenu() {
    MenuBarController::Callbacks callbacks;
    callbacks.onPlayPause =
        whileAlive([](AppCoordinator& self) { self.applyPauseState(!self.queue_->paused()); });
    callbacks.onSkip = whileAlive([](AppCoordinator& self) { self.next(); });
    callbacks.onStop = whileAlive([](AppCoordinator& self) { self.transport_->stop(); });
    callbacks.onToggleMute = whileAlive([](AppCoordinator& self) { self.toggleMute(); });
    callbacks.onToggleCaptions = whileAlive([](AppCoordinator& self) { self.captions_->toggle(); });
    callbacks.onVolume = whileAlive<std::int64_t>(
        [](AppCoordinator& self, std::int64_t percent) { self.setVolume(percent); });
    callbacks.onSpeed =
        whileAlive<double>([](AppCoordinator& self, double speed) { self.setSpeed(speed); });
    callbacks.onAttach =
        whileAlive<const DiscoveredRow&>([](AppCoordinator& self, const DiscoveredRow& row) {
            self.attachSessionLocal(
                {row.id, row.cwd, row.transcript, row.source, row.branch, row.title});
        });
    callbacks.onDetach = whileAlive<const std::string&>(
        [](AppCoordinator& self, const std::string& id) { self.detachSessionLocal(id); });
    if (search_->hasPanel())
        callbacks.onSearch = whileAlive([](AppCoordinator& self) { self.openSearchPanel(); });
    // The control tool puts the entry there; without it the row would do nothing.
    if (!CtlInvocation::ctlSpawnDisabled() && CtlInvocation::resolve())
        callbacks.onToggleStartAtLogin = [] {
            runCtl({isLaunchAgentInstalled() ? "uninstall" : "install"});
        };
    callbacks.onQuit = whileAlive([](AppCoordinator& self) { self.quit(); });
    menuBar_->setCallbacks(std::move(callbacks));
}

void AppCoordinator::installRemoteCommandHandlers() {
    if (platform_.remoteCommands == nullptr) return;
    const auto answering = [weak = weak_from_this()](auto body) {
        return [weak, body] {
            const auto self = weak.lock();
            return self ? body(*self) : RemoteCommandStatus::commandFailed;
        };
    };
    const auto done = [answering](auto body) {
        return answering([body](AppCoordinator& self) {
            body(self);
            return RemoteCommandStatus::success;
        });
    };
    RemoteCommandCenter::Handlers handlers;
    handlers.play = done([](AppCoordinator& self) { self.applyPauseState(false); });
    handlers.pause = done([](AppCoordinator& self) { self.applyPauseState(true); });
    handlers.togglePlayPause =
        done([](AppCoordinator& self) { self.applyPauseState(!self.queue_->paused()); });
    handlers.stop = done([](AppCoordinator& self) { self.transport_->stop(); });
    handlers.nextTrack = answering([](AppCoordinator& self) {
        const auto status = self.transport_->nextTrack();
        if (status == RemoteCommandStatus::success) self.noteSkip();
        return status;
    });
    handlers.previousTrack =
        answering([](AppCoordinator& self) { return self.transport_->previousTrack(); });
    handlers.seek = whileAlive<double>(
        [](AppCoordinator& self, double seconds) { self.queue_->seek(seconds); });
    handlers.volume = whileAlive<double>(
        [](AppCoordinator& self, double gain) { self.setVolume(std::llround(gain * 100)); });
    platform_.remoteCommands->setHandlers(std::move(handlers));
}

void AppCoordinator::wireTransport() {
    commands_.add("play", [this](const Json& message) { play(message); });
    commands_.add("clear", [this](const Json&) { clearEverything(); });
    commands_.add("stop", [this](const Json&) { transport_->stop(); });
    commands_.add("quit", [this](const Json&) { platform_.exit(0); });
    commands_.add("pause", [this](const Json&) { applyPauseState(true); });
    commands_.add("resume", [this](const Json&) { applyPauseState(false); });
    commands_.add("toggle", [this](const Json&) { applyPauseState(!queue_->paused()); });
    commands_.add("skip", [this](const Json&) {
        if (queue_->current() == nullptr) return;
        queue_->skip();
        noteSkip();
    });
    commands_.add("restart", [this](const Json&) { queue_->restartCurrent(); });
    commands_.add("volume", [this](const Json& message) {
        if (const auto value = json::intAt(message, "value")) setVolume(*value);
    });
}

void AppCoordinator::wireHistoryCommands() {
    commands_.add("next", [this](const Json&) { next(); });
    commands_.add("previous", [this](const Json&) { transport_->previous(); });
    commands_.add("scrub", [this](const Json& message) {
        transport_->scrubTo(CommandArguments::scrubIndex(message));
    });
}

void AppCoordinator::wireCaptionCommands() {
    commands_.add("set", [this](const Json& message) {
        if (const auto text = json::stringAt(message, "text")) captionWindow_->setText(*text);
    });
    commands_.add("highlight", [this](const Json& message) {
        if (const auto progress = json::doubleAt(message, "progress"))
            captionWindow_->updateProgress(*progress);
    });
    commands_.add("show", [this](const Json&) { captionWindow_->show(); });
    commands_.add("hide", [this](const Json&) { captionWindow_->hide(); });
}

void AppCoordinator::wireSessionCommands() {
    commands_.add("attach", [this](const Json& message) { attach(message); });
    commands_.add("detach", [this](const Json& message) {
        detachSessionLocal(json::stringAt(message, "id").value_or(""));
    });
}

/// The history must know the message before the queue starts it.
void AppCoordinator::play(const Json& message) {
    const auto chunk = CommandArguments::playedChunk(message);
    if (!chunk) return;
    recordLive(*chunk);
    queue_->enqueue(*chunk);
}

void AppCoordinator::attach(const Json& message) {
    auto request = CommandArguments::attachRequest(message);
    if (!json::boolAt(message, "resume").value_or(false)) {
        attachSessionLocal(std::move(request));
    } else if (!sessions_->resume(request.id)) {
        // Whoever asked may have read the rows before the user detached the session.
        log_.info("attach: nothing to resume", {{"input", {{"id", request.id.substr(0, 8)}}}});
    }
}

}  // namespace sonra
