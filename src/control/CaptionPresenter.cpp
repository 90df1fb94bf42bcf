#include "control/CaptionPresenter.h"

#include "captions/CaptionWindow.h"
#include "frame/HarnessTheme.h"
#include "frame/ServiceState.h"
#include "frame/Text.h"
#include "ui/AttachCandidates.h"

namespace sonra {
namespace {

using Phase = NarrationStatus::Phase;
using History = MessageHistoryQueueState;

void writeCaptions(bool on) {
    ServiceState::update([on](Json& document) { document["captions"] = on; });
}

LiveIndicator indicatorFor(const History::Cursor& cursor) {
    if (const auto* history = std::get_if<History::History>(&cursor))
        return {LiveIndicator::History{history->messageIndex, history->totalKnown}};
    if (std::holds_alternative<History::Live>(cursor)) return {LiveIndicator::Live{}};
    return {};
}

/// Folder and branch of the session that was attached first, whose colours are shown too.
std::string labelOf(const SessionRows& sessions) {
    if (sessions.attached.empty()) return {};
    const auto& first = sessions.attached.front();
    auto folder = menu::folderOf(first.cwd);
    if (folder.empty()) folder = text::prefix(first.id, 8);
    return first.branch.empty() ? folder : folder + " · " + first.branch;
}

}  // namespace

CaptionPresenter::CaptionPresenter(MainLoop& loop, CaptionWindow& window,
                                   std::function<void()> onSettingsWritten)
    : loop_(loop), window_(window), onSettingsWritten_(std::move(onSettingsWritten)) {}

void CaptionPresenter::follow(const StateTick& tick) {
    window_.setSpeed(tick.state.speed);
    window_.setTheme(HarnessTheme::current(tick.sessions.leadingSource));
    window_.setSessionLabel(labelOf(tick.sessions));
    if (!tick.hasDocument) return;
    // What another program has to say shows even where captions are off.
    const bool mustShow = tick.state.synthesizing || !tick.state.lastSpeakError.empty();
    followVisibility(tick.state.captions || mustShow);
    followSynthesizing(tick.state.synthesizing);
    followError(tick.state.lastSpeakError);
}

void CaptionPresenter::followVisibility(bool wanted) {
    if (wanted == window_.isVisible()) return;
    if (wanted)
        window_.show();
    else
        window_.hide();
}

/// Another program speaks for this one, and says so.
void CaptionPresenter::followSynthesizing(bool synthesizing) {
    if (std::exchange(synthesizingShown_, synthesizing) == synthesizing || !synthesizing) return;
    window_.setText("Synthesizing…");
    window_.setCounter("⏳");
    window_.show();
}

/// Shown once, from its first appearance on; it is then taken out of the document.
void CaptionPresenter::followError(const std::string& error) {
    if (std::exchange(errorShown_, error) == error) return;
    errorClearTimer_.cancel();
    if (error.empty()) return;
    window_.setText(error);
    window_.setCounter("⚠");
    window_.show();
    errorClearTimer_ = loop_.after(errorShownFor, [this] { clearError(); });
}

/// Another one that has come meanwhile stays, and shows at the next tick; and so does this one if
/// the document couldn't be written.
void CaptionPresenter::clearError() {
    const auto shown = std::exchange(errorShown_, {});
    ServiceState::update([&shown](Json& document) {
        if (json::stringAt(document, "lastSpeakError") == shown) document["lastSpeakError"] = "";
    });
    onSettingsWritten_();
}

void CaptionPresenter::historyChanged(const MessageHistoryQueueState& state) {
    window_.setLiveIndicator(indicatorFor(state.cursor));
    window_.setNewLiveCount(state.newLiveMessageCount);
}

void CaptionPresenter::sessionAttached() {
    if (!userDismissedCaptionsAfterAttach_) {
        if (!ServiceState::read().captions) writeCaptions(true);
        window_.show();
    }
    setStatus({Phase::connecting});
}

void CaptionPresenter::sessionReady() {
    setStatus({Phase::warming});
}

void CaptionPresenter::voiceReady(const NarrationStatus& otherwise) {
    if (status_.phase == Phase::connecting || status_.phase == Phase::warming) setStatus(otherwise);
}

void CaptionPresenter::sessionDetached() {
    userDismissedCaptionsAfterAttach_ = false;
}

void CaptionPresenter::synthesisBegan() {
    setStatus({Phase::synthesizing});
}

void CaptionPresenter::synthesisEnded(const NarrationStatus& otherwise) {
    if (status_.phase == Phase::synthesizing) setStatus(otherwise);
}

void CaptionPresenter::chunkStarted(const std::string& text, int index, int total) {
    window_.setText(text);
    window_.setCounter(total < 2 ? "▶"
                                 : "▶ " + std::to_string(index) + "/" + std::to_string(total));
    window_.setPaused(false);
    setStatus({Phase::playing});
    // These words have replaced it; another program that is at it again says so anew.
    synthesizingShown_ = false;
    if (ServiceState::read().captions) window_.show();
}

void CaptionPresenter::progressed(double elapsed, double duration) {
    window_.setElapsed(elapsed);
    window_.setDuration(duration);
    if (duration > 0) window_.updateProgress(elapsed / duration);
}

void CaptionPresenter::queueIdle() {
    window_.setIdle();
    status_ = {Phase::idle};
}

void CaptionPresenter::queuePaused(std::size_t queued) {
    window_.setPaused(true);
    setStatus(NarrationStatus::paused(static_cast<int>(queued)));
}

void CaptionPresenter::queueResumed(bool hasSomethingToPlay) {
    window_.setPaused(false);
    setStatus({hasSomethingToPlay ? Phase::playing : Phase::idle});
}

void CaptionPresenter::showText(const std::string& text) {
    window_.setText(text);
    if (ServiceState::read().captions) window_.show();
}

void CaptionPresenter::toggle() {
    const bool on = !ServiceState::read().captions;
    writeCaptions(on);
    if (on) {
        window_.show();
    } else {
        window_.hide();
        userDismissedCaptionsAfterAttach_ = true;
    }
    onSettingsWritten_();
}

void CaptionPresenter::closed() {
    writeCaptions(false);
    window_.hide();
    onSettingsWritten_();
}

void CaptionPresenter::setStatus(const NarrationStatus& status) {
    status_ = status;
    window_.setStatus(status);
}

}  // namespace sonra
