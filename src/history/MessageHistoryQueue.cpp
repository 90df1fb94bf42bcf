#include "history/MessageHistoryQueue.h"

#include <algorithm>
#include <atomic>

#include "frame/ThreadAffinity.h"
#include "frame/WorkerPool.h"
#include "history/MessageCounter.h"
#include "platform/MainLoop.h"

namespace sonra {
namespace {

/// What one scrub can use up, so that it finds its pages read.
constexpr int pagesAhead =
    MessageHistoryQueue::scrubBudget / MessageHistoryQueue::pageBatchSize + 1;

std::string idOf(const AudioChunk& chunk) {
    if (!chunk.messageId.empty()) return chunk.messageId;
    return "anon-" + chunk.url.substr(chunk.url.find_last_of('/') + 1);
}

}  // namespace

MessageHistoryQueue::MessageHistoryQueue(MainLoop& loop, WorkerPool& pool, Config config,
                                         FileSizer fileSizer, OpenHistoryPages openPages)
    : loop_(loop),
      pool_(pool),
      openPages_(std::move(openPages)),
      ring_(std::make_shared<RingCacheProvider>(loop, std::move(config), std::move(fileSizer))),
      audioProbe_([] { return AudioProbe(); }),
      synth_([](const std::string&, const std::string&) { return false; }),
      synthQueue_(std::make_shared<SerialQueue>("sonra.resynth")),
      self_(std::make_shared<MessageHistoryQueue*>(this)) {}

MessageHistoryQueue::~MessageHistoryQueue() {
    endSession();
}

void MessageHistoryQueue::recordLive(const AudioChunk& chunk) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto id = idOf(chunk);
    live_.assign(id, chunk.sessionId);
    if (!inHistory()) live_.setFocus(chunk.sessionId);
    const bool isHot = ring_->cachedChunks(id).has_value();
    ring_->store(id, chunk);
    if (!isHot && live_.add(id)) recordNew(id, chunk.sessionId);
    if (std::holds_alternative<State::Idle>(state_.cursor)) setCursor(State::Live{});
}

void MessageHistoryQueue::recordNew(const std::string& messageId, const std::string& sessionId) {
    // A page may have brought it before it was heard.
    history_.remove(messageId);
    if (counted_ && live_.isFocused(messageId)) counted_->insert(messageId);
    if (!inHistory() || sessionId != live_.focus()) return;
    ++state_.newLiveMessageCount;
    fire();
}

void MessageHistoryQueue::setSession(const std::string& transcript, HistorySource source) {
    SONRA_ASSERT_MAIN_THREAD();
    endSession();
    pager_ = std::make_shared<HistoryPager>(
        loop_, [open = openPages_, transcript, source] { return open(transcript, source); },
        pageBatchSize, pagesAhead, [this] { pagesArrived(); });
    activeProvider_ =
        std::make_shared<ChainProvider>(std::vector<std::shared_ptr<MessageChunkProvider>>{
            ring_, std::make_shared<ResynthProvider>(loop_, pager_, ring_, synth_, synthQueue_)});
    if (hasBackwardReader(source)) return count(transcript, source);
    counted({});
}

/// Everything that is known through the transcript goes, and what is still being found out about it
/// will be dropped.
void MessageHistoryQueue::endSession() {
    if (const auto counting = std::exchange(counting_, nullptr)) *counting = true;
    pager_ = nullptr;
    activeProvider_ = nullptr;
    history_ = {};
    counted_ = std::nullopt;
    wantedIndex_ = std::nullopt;
}

void MessageHistoryQueue::count(const std::string& transcript, HistorySource source) {
    auto cancelled = counting_ = std::make_shared<std::atomic<bool>>(false);
    pool_.post([&loop = loop_, self = std::weak_ptr(self_), cancelled, transcript, source] {
        auto ids = MessageCounter::messageIds(transcript, source, *cancelled);
        if (!ids || *cancelled) return;
        loop.post([self, cancelled, ids = *std::move(ids)]() mutable {
            const auto queue = self.lock();
            if (queue && !*cancelled) (*queue)->counted(std::move(ids));
        });
    });
}

void MessageHistoryQueue::counted(std::unordered_set<std::string> ids) {
    counted_ = std::move(ids);
    counted_->insert(live_.focusedIds().begin(), live_.focusedIds().end());
    fire();
}

std::optional<int> MessageHistoryQueue::stableTotalKnown() const {
    if (!counted_) return std::nullopt;
    return static_cast<int>(counted_->size());
}

void MessageHistoryQueue::clearAll() {
    SONRA_ASSERT_MAIN_THREAD();
    endSession();
    ring_->clearAll();
    live_.clear();
    state_ = {};
    fire();
}

bool MessageHistoryQueue::wantsPage(int target) const {
    return pager_ && target + pagePrefetchMargin >= refCount() && !pager_->isExhausted();
}

/// Runs something that waits, as long as this turn of the main loop still allows it.
template <typename Wait>
auto MessageHistoryQueue::patiently(Wait wait) {
    constexpr std::chrono::microseconds negligible{100};
    const auto start = std::chrono::steady_clock::now();
    auto result = wait(start + patience - waited_);
    const auto took = std::chrono::steady_clock::now() - start;
    if (took < negligible) return result;
    if (waited_.count() == 0)
        loop_.post([self = std::weak_ptr(self_)] {
            if (const auto queue = self.lock()) (*queue)->waited_ = {};
        });
    waited_ += took;
    return result;
}

void MessageHistoryQueue::prefetch(int target) {
    takePages(target, [this] {
        return patiently([this](auto deadline) { return pager_->next(deadline); });
    });
}

void MessageHistoryQueue::takePages(
    int target, const std::function<std::optional<HistoryPager::Page>()>& next) {
    while (wantsPage(target)) {
        const auto page = next();
        if (!page) break;
        merge(*page);
    }
    wantedIndex_ = wantsPage(target) ? std::optional(target) : std::nullopt;
}

/// A move may have gone on without these. Nobody waits for the ones after them.
void MessageHistoryQueue::pagesArrived() {
    if (!wantedIndex_) return;
    const int before = refCount();
    takePages(*wantedIndex_, [this] { return pager_->next(HistoryPager::Deadline::min()); });
    if (refCount() != before) fire();
}

void MessageHistoryQueue::merge(const std::vector<HistoryMessage>& page) {
    std::vector<MessageRef> older;
    for (const auto& message : page) {
        const auto& id = message.messageId;
        if (history_.contains(id) || live_.isFocused(id)) continue;
        if (!live_.focus().empty()) live_.assign(id, live_.focus());
        older.push_back({id, live_.focus(), MessageRef::History{message.timestamp}});
    }
    history_.prependOlder(older);
}

int MessageHistoryQueue::refCount() const {
    return static_cast<int>(live_.focusedIds().size()) + history_.count();
}

/// The timeline is what was paged, and behind it, newer, what was heard in the focused session.
std::optional<MessageRef> MessageHistoryQueue::refAt(int backFromNewest) const {
    const auto& ids = live_.focusedIds();
    const int heard = static_cast<int>(ids.size());
    if (backFromNewest < heard) {
        const auto& id = ids[static_cast<std::size_t>(heard - 1 - backFromNewest)];
        return MessageRef{id, live_.sessionOf(id), MessageRef::LiveTail{}};
    }
    const auto* ref = history_.ref(backFromNewest - heard);
    return ref ? std::optional(*ref) : std::nullopt;
}

std::optional<MessageRef> MessageHistoryQueue::refAtCursor() {
    if (const auto* history = inHistory()) prefetch(history->messageIndex);
    const int count = refCount();
    if (count == 0 || std::holds_alternative<State::Idle>(state_.cursor)) return std::nullopt;
    const auto* history = inHistory();
    if (!history) return refAt(0);
    if (count == 1) return std::nullopt;
    return refAt(std::clamp(history->messageIndex, 1, count - 1));
}

std::optional<MessageRef> MessageHistoryQueue::currentMessageRef() {
    SONRA_ASSERT_MAIN_THREAD();
    return refAtCursor();
}

std::optional<std::vector<AudioChunk>> MessageHistoryQueue::currentMessageRingChunks() {
    SONRA_ASSERT_MAIN_THREAD();
    const auto ref = refAtCursor();
    auto chunks = ref ? ring_->cachedChunks(ref->messageId) : std::nullopt;
    if (chunks && chunks->empty()) return std::nullopt;
    return chunks;
}

std::optional<std::string> MessageHistoryQueue::historyText(const std::string& messageId) {
    SONRA_ASSERT_MAIN_THREAD();
    if (!pager_) return std::nullopt;
    return patiently([&](auto deadline) { return pager_->searchText(messageId, deadline); });
}

MessageHistoryQueue::TimelineCounts MessageHistoryQueue::liveTimelineCounts() const {
    SONRA_ASSERT_MAIN_THREAD();
    const int count = std::max(refCount(), stableTotalKnown().value_or(0));
    return {count, count};
}

MessageChunkProvider& MessageHistoryQueue::chunkProvider() {
    if (activeProvider_) return *activeProvider_;
    return *ring_;
}

/// A copy is called, since the callback may be replaced while it runs.
void MessageHistoryQueue::fire() {
    if (firingHeld_) {
        fireLater_ = true;
        return;
    }
    if (const auto callback = onStateChange_) callback(State(state_));
}

void MessageHistoryQueue::setCursor(Cursor cursor) {
    state_.cursor = cursor;
    fire();
}

}  // namespace sonra
