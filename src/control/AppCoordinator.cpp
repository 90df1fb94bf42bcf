#include "control/AppCoordinator.h"

#include <algorithm>

#include "control/KokoroSynth.h"
#include "frame/CtlInvocation.h"
#include "frame/ServiceState.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

std::string textOf(const Json& message, std::string_view key) {
    return json::stringAt(message, key).value_or("");
}

/// The chunk that a "play" command stands for; its file belongs to the queue, whatever the sender
/// says.
AudioChunk chunkFrom(const Json& message, const std::string& wav) {
    AudioChunk chunk;
    chunk.url = wav;
    chunk.text = textOf(message, "text");
    chunk.title = json::stringAt(message, "title").value_or("Claude");
    chunk.artist = json::stringAt(message, "artist").value_or("TTS");
    chunk.albumLine = json::stringAt(message, "snippet").value_or(chunk.text);
    chunk.sessionId = textOf(message, "sessionId");
    chunk.messageId = textOf(message, "messageId");
    chunk.ephemeral = true;
    return chunk;
}

SpeechConfig configOf(const ServiceState& state) {
    return {{VoiceID::Namespace::kokoro, state.voice}, state.speed, static_cast<int>(state.volume)};
}

float gainOf(std::int64_t percent) {
    return static_cast<float>(std::clamp<std::int64_t>(percent, 0, 100)) / 100.0F;
}

}  // namespace

AppCoordinator::AppCoordinator(std::string socketPath, Platform platform, Speech speech)
    : socketPath_(std::move(socketPath)),
      platform_(std::move(platform)),
      speech_(std::move(speech)),
      nowPlayingSnapshot_(std::make_shared<NowPlayingSnapshotWriter>()),
      queue_(std::make_unique<AudioQueue>(platform_.loop, platform_.players, platform_.pool,
                                          platform_.nowPlaying, nowPlayingSnapshot_)),
      ipc_(std::make_unique<IPCServer>(platform_.loop, socketPath_)),
      log_(Log::shared().child({{"class", "AppCoordinator"}})) {}

AppCoordinator::~AppCoordinator() = default;

bool AppCoordinator::start() {
    SONRA_ASSERT_MAIN_THREAD();
    speech_.synthesizer->kokoro()->warmup();
    wireQueue();
    wireSessions();
    wireTransport();
    wireSessionCommands();
    applyState();
    ipc_->onCommand = [weak = weak_from_this()](const Json& message) {
        if (const auto self = weak.lock()) self->handleIPC(message);
    };
    if (!ipc_->start()) return false;
    stateTimer_ = platform_.loop.every(stateInterval, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->applyState();
    });
    if (!CtlInvocation::ctlSpawnDisabled()) prewarmKokoro();
    return true;
}

void AppCoordinator::shutDown() {
    ipc_->unlinkSocket();
}

void AppCoordinator::wireQueue() {
    AudioQueue::Callbacks callbacks;
    callbacks.onChunkStart = [weak = weak_from_this()](const AudioChunk& chunk, int, int) {
        if (const auto self = weak.lock()) self->onChunkStart(chunk);
    };
    queue_->setCallbacks(std::move(callbacks));
}

void AppCoordinator::wireSessions() {
    NarrationSessions::Callbacks callbacks;
    callbacks.synth = makeSynth();
    callbacks.enqueue = [weak = weak_from_this()](const AudioChunk& chunk) {
        if (const auto self = weak.lock()) self->queue_->enqueue(chunk);
    };
    callbacks.onSynthesisStart = [weak = weak_from_this()](const std::string&, const std::string&) {
        if (const auto self = weak.lock()) self->onSynthesisStart();
    };
    callbacks.onNewAttach = [this] { onNewAttach(); };
    callbacks.onLastDetach = [this] { onLastDetach(); };
    callbacks.wallClockMs = platform_.wallClockMs;
    sessions_ =
        std::make_unique<NarrationSessions>(platform_.loop, platform_.files, std::move(callbacks));
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

void AppCoordinator::wireTransport() {
    commands_.add("play", [this](const Json& message) { play(message); });
    commands_.add("clear", [this](const Json&) { queue_->clear(); });
    commands_.add("stop", [this](const Json&) { queue_->clear(); });
    commands_.add("quit", [this](const Json&) { platform_.exit(0); });
    commands_.add("pause", [this](const Json&) { applyPauseState(true); });
    commands_.add("resume", [this](const Json&) { applyPauseState(false); });
    commands_.add("toggle", [this](const Json&) { applyPauseState(!queue_->paused()); });
    commands_.add("skip", [this](const Json&) { queue_->skip(); });
    commands_.add("restart", [this](const Json&) { queue_->restartCurrent(); });
    commands_.add("volume", [this](const Json& message) {
        if (const auto value = json::intAt(message, "value")) setVolume(*value);
    });
}

void AppCoordinator::wireSessionCommands() {
    commands_.add("attach", [this](const Json& message) { attach(message); });
    commands_.add("detach",
                  [this](const Json& message) { detachSessionLocal(textOf(message, "id")); });
}

void AppCoordinator::handleIPC(const Json& message) {
    SONRA_ASSERT_MAIN_THREAD();
    commands_.handle(message);
}

void AppCoordinator::onChunkStart(const AudioChunk& chunk) {
    if (ServiceState::read().synthesizing)
        ServiceState::update([](Json& document) { document["synthesizing"] = false; });
    lastSnippet_ = chunk.text.empty() ? chunk.albumLine : chunk.text;
    nowPlayingSnapshot_->updateSnippet(lastSnippet_);
}

void AppCoordinator::onSynthesisStart() {
    ++synthesesUnderWay_;
    nowPlayingSnapshot_->updateSynthesizing(true);
}

/// A message that was under way at the last detach may have brought the worker up once more.
void AppCoordinator::onSynthesisEnd() {
    --synthesesUnderWay_;
    nowPlayingSnapshot_->updateSynthesizing(isSynthesizing());
    if (!isSynthesizing() && !sessions_->isNarrating()) stopWorkerUnlessAttached();
}

/// A new attach starts unpaused, also after a pause that an earlier run left behind.
void AppCoordinator::onNewAttach() {
    ++*attaches_;
    prewarmKokoro();
    if (!ServiceState::read().paused) return;
    ServiceState::update([](Json& document) { document["paused"] = false; });
    queue_->setPaused(false);
}

/// The queue plays out what it holds; the worker is no longer needed.
void AppCoordinator::onLastDetach() {
    speech_.synthesizer->kokoro()->cancelCurrent();
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
}

void AppCoordinator::setVolume(std::int64_t percent) {
    const auto bounded = std::clamp<std::int64_t>(percent, 0, 100);
    queue_->setVolume(gainOf(bounded));
    ServiceState::update([bounded](Json& document) { document["volume"] = bounded; });
}

void AppCoordinator::play(const Json& message) {
    if (const auto wav = json::stringAt(message, "wav")) queue_->enqueue(chunkFrom(message, *wav));
}

void AppCoordinator::attach(const Json& message) {
    const auto id = textOf(message, "id");
    if (json::boolAt(message, "resume").value_or(false) && sessions_->resume(id)) return;
    attachSessionLocal({id, textOf(message, "cwd"), textOf(message, "transcript"),
                        textOf(message, "source"), textOf(message, "branch"),
                        textOf(message, "title")});
}

void AppCoordinator::attachSession(const std::string& id, const std::string& cwd) {
    attachSessionLocal({id, cwd, "", "claude-code", "", ""});
}

bool AppCoordinator::attachSessionLocal(AttachRequest request) {
    return sessions_->attach(std::move(request));
}

void AppCoordinator::detachSessionLocal(const std::string& id) {
    sessions_->detach(id);
}

void AppCoordinator::applyState() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto tick = StateTick::read();
    queue_->setVolume(gainOf(tick.state.volume));
    queue_->setMuted(tick.state.muted);
    if (queue_->paused() != tick.state.paused) queue_->setPaused(tick.state.paused);
    if (tick.hasDocument) sessions_->follow(tick.sessions);
    maybeAutoAttachSoleSession(tick);
}

void AppCoordinator::maybeAutoAttachSoleSession(const StateTick& tick) {
    if (sessions_->userDetachedThisRun()) return;
    const auto row = SessionRows::soleAutoAttachCandidate(
        tick.sessions.attached, tick.sessions.discovered, platform_.wallClockMs());
    if (!row || row == refusedCandidate_) return;
    log_.info("auto-attach sole session",
              {{"input", {{"sessionId", row->id}, {"source", row->source}}}});
    const bool attached = attachSessionLocal(
        {row->id, row->cwd, row->transcript, row->source, row->branch, row->title});
    refusedCandidate_ = attached ? std::nullopt : row;
}

/// Brings the voice up ahead of need, off the main thread.
void AppCoordinator::prewarmKokoro() {
    if (CtlInvocation::ctlSpawnDisabled()) return;
    // One is enough: it blocks a thread of the pool for as long as a model takes to load.
    if (!prewarming_->exchange(true))
        platform_.pool.post([worker = speech_.worker, prewarming = prewarming_] {
            worker->startAndWaitReady();
            *prewarming = false;
        });
    speech_.synthesizer->kokoro()->warmup();
}

}  // namespace sonra
