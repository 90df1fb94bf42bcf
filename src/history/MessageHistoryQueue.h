#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "frame/SerialQueue.h"
#include "history/AudioProbe.h"
#include "history/ChainProvider.h"
#include "history/HistoryPager.h"
#include "history/HistoryPages.h"
#include "history/HistorySource.h"
#include "history/LiveMessages.h"
#include "history/MessageHistoryQueueState.h"
#include "history/ResynthProvider.h"
#include "history/RingCacheProvider.h"
#include "history/SkipOutcome.h"
#include "history/TimelineIndex.h"

namespace sonra {

class MainLoop;
class WorkerPool;

/// Knows where in the conversation the listener stands, and decides what a move through it comes
/// to. Live narration adds messages at the newest end; older ones come from the transcript, page by
/// page. It plays nothing itself.
///
/// Main thread only; borrows loop and pool, owns the ring of kept audio. Transcripts are read on
/// threads of their own: a move waits at most `patience` for a page that isn't there yet and goes
/// on with what is known; when the page comes later, `onStateChange` fires. What was begun for an
/// earlier session is dropped when it comes home. Nothing here throws or fails: a message whose
/// audio couldn't be kept or made stays on the timeline.
class MessageHistoryQueue {
  public:
    using State = MessageHistoryQueueState;
    using Cursor = State::Cursor;
    using Config = RingCacheProvider::Config;
    using FileSizer = RingCacheProvider::FileSizer;
    using Synth = ResynthProvider::Synth;

    /// Seconds into a chunk past which going back means its start.
    static constexpr double restartThreshold = 1.5;
    /// Messages that are kept known beyond the cursor.
    static constexpr int pagePrefetchMargin = 4;
    static constexpr int pageBatchSize = 16;
    /// Steps of one scrub.
    static constexpr int scrubBudget = 256;
    /// How long one move may hold the main thread for a page.
    static constexpr std::chrono::milliseconds patience{20};

    struct TimelineCounts {
        int messageIndex = 0;
        int totalMessages = 0;
    };

    MessageHistoryQueue(MainLoop& loop, WorkerPool& pool, Config config = Config(),
                        FileSizer fileSizer = RingCacheProvider::defaultFileSizer,
                        OpenHistoryPages openPages = openSessionHistory);
    ~MessageHistoryQueue();
    MessageHistoryQueue(const MessageHistoryQueue&) = delete;
    MessageHistoryQueue& operator=(const MessageHistoryQueue&) = delete;

    /// Fires at each change, inside the call that made it. It may call the queue, but not destroy
    /// it.
    void setOnStateChange(std::function<void(const State&)> onStateChange) {
        onStateChange_ = std::move(onStateChange);
    }
    void setAudioProbe(std::function<AudioProbe()> probe) { audioProbe_ = std::move(probe); }
    /// Speaks a text into a file and says whether that worked; blocks, and is called on a queue of
    /// its own. To be set before `setSession`.
    void setSynth(Synth synth) { synth_ = std::move(synth); }

    /// Every live chunk, as it is made and before it is queued.
    void recordLive(const AudioChunk& chunk);
    /// A session was attached: history pages come from its transcript from now on. The cursor
    /// stays.
    void setSession(const std::string& transcript, HistorySource source);
    /// Forgets everything.
    void clearAll();

    /// Moves by one message; returns the chunks that are kept of the message that is reached.
    std::vector<AudioChunk> goToPreviousMessage();
    std::vector<AudioChunk> goToNextMessage();
    /// The transport buttons.
    SkipOutcome smartPrevious();
    SkipOutcome smartNext();
    void resumeLive();
    /// Moves by whole messages towards `index` back from the newest; below 1 means live. It ends
    /// where it gets no further, or after `scrubBudget` steps; `onStateChange` fires once, at the
    /// end.
    void scrubTo(int index);

    /// What the cursor points at.
    [[nodiscard]] std::optional<MessageRef> currentMessageRef();
    [[nodiscard]] std::optional<std::vector<AudioChunk>> currentMessageRingChunks();
    /// The body of a message of the transcript, if it is known or read soon.
    [[nodiscard]] std::optional<std::string> historyText(const std::string& messageId);
    /// The newest position in the timeline, twice.
    [[nodiscard]] TimelineCounts liveTimelineCounts() const;
    [[nodiscard]] MessageChunkProvider& chunkProvider();

    [[nodiscard]] const State& state() const { return state_; }
    [[nodiscard]] const std::string& focusedSessionId() const { return live_.focus(); }
    /// Messages of the attached session, once they have been counted.
    [[nodiscard]] std::optional<int> stableTotalKnown() const;
    [[nodiscard]] const RingCacheProvider& ring() const { return *ring_; }
    [[nodiscard]] const LiveMessages& live() const { return live_; }

  private:
    void recordNew(const std::string& messageId, const std::string& sessionId);
    void endSession();
    void count(const std::string& transcript, HistorySource source);
    void counted(std::unordered_set<std::string> ids);

    void fire();
    void setCursor(Cursor cursor);
    std::vector<AudioChunk> moveToHistory(int target);
    SkipOutcome resolveCurrentOr(SkipOutcome::Action otherwise);
    void walkBackTo(int index, int& budget);
    void walkForwardTo(int index, int& budget);

    /// Merges pages until `target` is well inside of what is known, or no page comes in time.
    void prefetch(int target);
    void takePages(int target, const std::function<std::optional<HistoryPager::Page>()>& next);
    [[nodiscard]] bool wantsPage(int target) const;
    template <typename Wait>
    auto patiently(Wait wait);
    void pagesArrived();
    void merge(const std::vector<HistoryMessage>& page);

    [[nodiscard]] int refCount() const;
    [[nodiscard]] std::optional<MessageRef> refAt(int backFromNewest) const;
    [[nodiscard]] std::optional<MessageRef> refAtCursor();
    [[nodiscard]] const State::History* inHistory() const {
        return std::get_if<State::History>(&state_.cursor);
    }

    MainLoop& loop_;
    WorkerPool& pool_;
    const OpenHistoryPages openPages_;
    const std::shared_ptr<RingCacheProvider> ring_;
    std::function<void(const State&)> onStateChange_;
    std::function<AudioProbe()> audioProbe_;
    Synth synth_;
    const std::shared_ptr<SerialQueue> synthQueue_;  ///< one at a time, also across sessions

    State state_;
    LiveMessages live_;
    TimelineIndex history_;  ///< what has been paged, without what was heard in the focus
    std::shared_ptr<HistoryPager> pager_;
    std::shared_ptr<ChainProvider> activeProvider_;
    /// Ids of all messages of the session, once known.
    std::optional<std::unordered_set<std::string>> counted_;
    std::shared_ptr<std::atomic<bool>> counting_;  ///< set when the count is stale
    std::optional<int> wantedIndex_;  ///< of a move that went on without the page it needed
    std::chrono::steady_clock::duration waited_{};  ///< in this turn of the main loop
    bool firingHeld_ = false;
    bool fireLater_ = false;
    std::shared_ptr<MessageHistoryQueue*> self_;  ///< expires with the queue
};

}  // namespace sonra
