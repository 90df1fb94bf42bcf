#include "control/HistoryTransport.h"

#include "frame/ThreadAffinity.h"
#include "playback/AudioQueue.h"
#include "speech/SpawnedEngine.h"

namespace sonra {

using State = MessageHistoryQueueState;

HistoryTransport::HistoryTransport(AudioQueue& queue, MessageHistoryQueue& history,
                                   std::shared_ptr<SpawnedEngine> engine, ShowText showText)
    : queue_(queue),
      history_(history),
      engine_(std::move(engine)),
      showText_(std::move(showText)) {}

void HistoryTransport::next() {
    SONRA_ASSERT_MAIN_THREAD();
    apply(history_.smartNext());
}

void HistoryTransport::previous() {
    SONRA_ASSERT_MAIN_THREAD();
    apply(history_.smartPrevious());
}

/// Only the target is heard, however many messages lie between.
void HistoryTransport::scrubTo(int index) {
    SONRA_ASSERT_MAIN_THREAD();
    if (index < 1) {
        cancelColdResolve();
        if (std::holds_alternative<State::History>(history_.state().cursor)) history_.scrubTo(0);
        queue_.clear();
        return;
    }
    history_.scrubTo(index);
    if (const auto ref = history_.currentMessageRef()) resolve(*ref);
}

void HistoryTransport::jumpToLive() {
    SONRA_ASSERT_MAIN_THREAD();
    cancelColdResolve();
    history_.resumeLive();
    queue_.clear();
}

void HistoryTransport::stop() {
    SONRA_ASSERT_MAIN_THREAD();
    cancelColdResolve();
    queue_.clear();
}

void HistoryTransport::cancelColdResolve() {
    ++*coldResolveGeneration_;
    engine_->cancelCurrent();
}

bool HistoryTransport::canNavigate() const {
    return !std::holds_alternative<State::Live>(history_.state().cursor) ||
           queue_.current() != nullptr;
}

RemoteCommandStatus HistoryTransport::nextTrack() {
    if (!canNavigate()) return RemoteCommandStatus::commandFailed;
    next();
    return RemoteCommandStatus::success;
}

RemoteCommandStatus HistoryTransport::previousTrack() {
    if (!canNavigate()) return RemoteCommandStatus::commandFailed;
    previous();
    return RemoteCommandStatus::success;
}

void HistoryTransport::apply(const SkipOutcome& outcome) {
    if (const auto* replace = outcome.as<SkipOutcome::ReplaceQueue>())
        play(replace->chunks, replace->startIndex);
    else if (const auto* target = outcome.as<SkipOutcome::Resolve>())
        resolve(target->ref);
    else if (outcome.as<SkipOutcome::RestartChunk>() != nullptr)
        queue_.restartCurrent();
    else if (outcome.as<SkipOutcome::SkipLiveChunk>() != nullptr)
        queue_.skip();
    else if (outcome.as<SkipOutcome::ResumeLive>() != nullptr)
        queue_.clear();
}

void HistoryTransport::play(const std::vector<AudioChunk>& chunks, int startIndex) {
    if (chunks.empty()) return;
    // What an earlier move is having spoken must not follow these.
    cancelColdResolve();
    queue_.clear();
    queue_.enqueueAll(chunks, startIndex);
}

void HistoryTransport::resolve(const MessageRef& ref) {
    if (const auto chunks = history_.chunkProvider().cachedChunks(ref.messageId))
        play(*chunks, 0);
    else
        resolveCold(ref);
}

void HistoryTransport::resolveCold(const MessageRef& ref) {
    cancelColdResolve();
    const auto text = history_.historyText(ref.messageId).value_or("");
    if (!text.empty()) showText_(text);
    queue_.clear();
    const auto stillWanted = [latest = coldResolveGeneration_](int generation) {
        return latest->load() == generation;
    };
    MessageChunkProvider::Request request;
    request.ref = ref;
    request.generation = coldResolveGeneration_->load();
    request.isCurrent = stillWanted;
    request.onChunk = [weak = std::weak_ptr(self_), stillWanted,
                       generation = request.generation](const AudioChunk& chunk) {
        const auto self = weak.lock();
        if (self && stillWanted(generation)) (*self)->queue_.enqueue(chunk);
    };
    request.onDone = [] {};
    history_.chunkProvider().resolveChunks(std::move(request));
}

}  // namespace sonra
