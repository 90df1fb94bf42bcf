// The moves of the MessageHistoryQueue: single steps, the transport buttons, the scrub.

#include <algorithm>
#include <utility>

#include "frame/ThreadAffinity.h"
#include "history/MessageHistoryQueue.h"

namespace sonra {

std::vector<AudioChunk> MessageHistoryQueue::moveToHistory(int target) {
    prefetch(target);
    const int total = stableTotalKnown().value_or(refCount());
    const int bound = std::max(total, refCount()) - 1;
    if (bound < 1) return {};
    const int index = std::clamp(target, 1, bound);
    setCursor(State::History{index, total});
    const auto ref = refAt(index);
    if (!ref) return {};
    return ring_->cachedChunks(ref->messageId).value_or(std::vector<AudioChunk>());
}

std::vector<AudioChunk> MessageHistoryQueue::goToPreviousMessage() {
    SONRA_ASSERT_MAIN_THREAD();
    if (std::holds_alternative<State::Idle>(state_.cursor)) return {};
    const auto* history = inHistory();
    return moveToHistory(history ? history->messageIndex + 1 : 1);
}

std::vector<AudioChunk> MessageHistoryQueue::goToNextMessage() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto* history = inHistory();
    if (!history) return {};
    if (history->messageIndex > 1) return moveToHistory(history->messageIndex - 1);
    resumeLive();
    return {};
}

void MessageHistoryQueue::resumeLive() {
    SONRA_ASSERT_MAIN_THREAD();
    state_.newLiveMessageCount = 0;
    setCursor(State::Live{});
}

SkipOutcome MessageHistoryQueue::resolveCurrentOr(SkipOutcome::Action otherwise) {
    if (auto ref = refAtCursor()) return {SkipOutcome::Resolve{*std::move(ref)}};
    return {std::move(otherwise)};
}

SkipOutcome MessageHistoryQueue::smartPrevious() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto probe = audioProbe_();
    if (probe.position > restartThreshold) return {SkipOutcome::RestartChunk{}};
    if (probe.chunkIndex >= 2)
        if (auto chunks = currentMessageRingChunks())
            return {SkipOutcome::ReplaceQueue{*std::move(chunks), probe.chunkIndex - 2}};
    if (std::holds_alternative<State::Idle>(state_.cursor)) return {SkipOutcome::Noop{}};
    const auto before = state_.cursor;
    goToPreviousMessage();
    // At the oldest message too, the button answers.
    if (state_.cursor == before) return {SkipOutcome::RestartChunk{}};
    return resolveCurrentOr(SkipOutcome::RestartChunk{});
}

SkipOutcome MessageHistoryQueue::smartNext() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto probe = audioProbe_();
    if (probe.chunkIndex < probe.totalChunks) {
        if (std::holds_alternative<State::Live>(state_.cursor))
            return {SkipOutcome::SkipLiveChunk{}};
        if (auto chunks = currentMessageRingChunks())
            return {SkipOutcome::ReplaceQueue{*std::move(chunks), probe.chunkIndex}};
    }
    // The last live chunk isn't cut off.
    if (!inHistory()) return {SkipOutcome::Noop{}};
    goToNextMessage();
    return resolveCurrentOr(SkipOutcome::ResumeLive{});
}

/// What one scrub passes through isn't shown: the callback runs once it stands.
void MessageHistoryQueue::scrubTo(int index) {
    SONRA_ASSERT_MAIN_THREAD();
    firingHeld_ = true;
    int budget = scrubBudget;
    if (index >= 1) walkBackTo(index, budget);
    walkForwardTo(index, budget);
    firingHeld_ = false;
    if (std::exchange(fireLater_, false)) fire();
}

void MessageHistoryQueue::walkBackTo(int index, int& budget) {
    for (; budget > 0; --budget) {
        const auto* history = inHistory();
        if (history && history->messageIndex >= index) return;
        const int before = history ? history->messageIndex : 0;
        goToPreviousMessage();
        history = inHistory();
        if (!history || history->messageIndex == before) return;
    }
}

void MessageHistoryQueue::walkForwardTo(int index, int& budget) {
    for (; budget > 0; --budget) {
        const auto* history = inHistory();
        if (!history || history->messageIndex <= index) return;
        const int before = history->messageIndex;
        goToNextMessage();
        history = inHistory();
        if (history && history->messageIndex == before) return;
    }
}

}  // namespace sonra
