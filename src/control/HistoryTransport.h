#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "history/MessageHistoryQueue.h"
#include "history/SkipOutcome.h"
#include "platform/RemoteCommandCenter.h"

namespace sonra {

class AudioQueue;
class SpawnedEngine;

/// The transport that works on whole messages: what the panel's buttons, the media keys and the
/// socket ask for is decided by the history and carried out on the audio queue.
///
/// Main thread only; owned by the coordinator; borrows queue and history, shares the engine. A
/// message without audio is spoken anew, and shown meanwhile; a later move voids that. Nothing here
/// fails: a message that can't be spoken stays silent.
class HistoryTransport {
  public:
    /// Shows the words of a message whose audio doesn't exist yet.
    using ShowText = std::function<void(const std::string& text)>;

    HistoryTransport(AudioQueue& queue, MessageHistoryQueue& history,
                     std::shared_ptr<SpawnedEngine> engine, ShowText showText);

    void next();
    void previous();
    /// To the message `index` back from the newest; below 1 means live.
    void scrubTo(int index);
    void jumpToLive();
    /// Silence, also for what is still being made.
    void stop();
    /// What is being spoken anew is not wanted any more.
    void cancelColdResolve();

    /// Whether next and previous have anything to act on.
    [[nodiscard]] bool canNavigate() const;
    /// The same moves for the desktop's media controls, refused where there is nothing to act on.
    RemoteCommandStatus nextTrack();
    RemoteCommandStatus previousTrack();

  private:
    void apply(const SkipOutcome& outcome);
    void play(const std::vector<AudioChunk>& chunks, int startIndex);
    void resolve(const MessageRef& ref);
    void resolveCold(const MessageRef& ref);

    AudioQueue& queue_;
    MessageHistoryQueue& history_;
    const std::shared_ptr<SpawnedEngine> engine_;
    const ShowText showText_;
    /// Voids resolves under way; read on the synthesis queue too, also after this object has gone.
    const std::shared_ptr<std::atomic<int>> coldResolveGeneration_ =
        std::make_shared<std::atomic<int>>(0);
    /// Expires with the transport.
    const std::shared_ptr<HistoryTransport*> self_ = std::make_shared<HistoryTransport*>(this);
};

}  // namespace sonra
