#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "captions/NarrationStatus.h"
#include "control/StateTick.h"
#include "history/MessageHistoryQueueState.h"
#include "platform/MainLoop.h"

namespace sonra {

class CaptionWindow;

/// When the captions show, and what they say: tells the caption window of sessions, voice, queue
/// and history, and keeps the setting `captions` of the shared document in step with it.
///
/// Main thread only; owned by the coordinator; borrows the window. Writing the setting takes the
/// document's lock.
class CaptionPresenter {
  public:
    /// How long a failure stands in the captions.
    static constexpr std::chrono::seconds errorShownFor{4};

    /// `onSettingsWritten` runs after a setting was written here.
    CaptionPresenter(MainLoop& loop, CaptionWindow& window,
                     std::function<void()> onSettingsWritten);

    /// What the shared document says now.
    void follow(const StateTick& tick);
    void historyChanged(const MessageHistoryQueueState& state);

    /// A session was added: the captions open, unless the user has closed them since.
    void sessionAttached();
    /// Its history can be gone through.
    void sessionReady();
    /// Nothing is waited for any more; `otherwise` is what the queue is about.
    void voiceReady(const NarrationStatus& otherwise);
    /// The next session that is attached opens the captions again.
    void sessionDetached();
    void synthesisBegan();
    /// Nothing is being made any more; `otherwise` is what the queue is about.
    void synthesisEnded(const NarrationStatus& otherwise);

    void chunkStarted(const std::string& text, int index, int total);
    void progressed(double elapsed, double duration);
    void queueIdle();
    void queuePaused(std::size_t queued);
    void queueResumed(bool hasSomethingToPlay);

    /// Words that have no sound yet.
    void showText(const std::string& text);
    /// The setting, from the menu.
    void toggle();
    /// The window's own close button.
    void closed();

  private:
    void followVisibility(bool wanted);
    void followSynthesizing(bool synthesizing);
    void followError(const std::string& error);
    void clearError();
    void setStatus(const NarrationStatus& status);

    MainLoop& loop_;
    CaptionWindow& window_;
    const std::function<void()> onSettingsWritten_;
    NarrationStatus status_;
    bool userDismissedCaptionsAfterAttach_ = false;
    bool synthesizingShown_ = false;
    std::string errorShown_;
    LoopHandle errorClearTimer_;
};

}  // namespace sonra
