#include "history/HistoryPager.h"

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <utility>

#include "frame/Mutex.h"
#include "frame/ThreadAffinity.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Shared with the reading thread, which may still be in a read when the pager goes. After `close`
/// the thread no longer touches the loop.
struct HistoryPager::Shared : std::enable_shared_from_this<Shared> {
    struct Search {
        std::string messageId;
        std::vector<Found> found;
        bool newerRead = false;
    };
    enum class Step { page, newer, done };

    MainLoop& loop;
    const std::function<std::unique_ptr<HistoryPages>()> open;
    const int pageSize;
    const std::size_t pagesAhead;
    const std::function<void()> onArrival;

    Mutex mutex;
    std::condition_variable changed;
    std::deque<Page> ready SONRA_GUARDED_BY(mutex);
    std::unordered_map<std::string, std::string> texts SONRA_GUARDED_BY(mutex);
    std::deque<Search> searches SONRA_GUARDED_BY(mutex);
    bool working SONRA_GUARDED_BY(mutex) = false;
    bool ended SONRA_GUARDED_BY(mutex) = false;
    bool closed SONRA_GUARDED_BY(mutex) = false;
    /// Somebody waited in vain, and nothing has come since.
    bool late SONRA_GUARDED_BY(mutex) = false;

    /// Of the reading thread.
    std::unique_ptr<HistoryPages> pages;

    Shared(MainLoop& mainLoop, std::function<std::unique_ptr<HistoryPages>()> opener, int size,
           int ahead, std::function<void()> arrival)
        : loop(mainLoop),
          open(std::move(opener)),
          pageSize(size),
          pagesAhead(static_cast<std::size_t>(ahead)),
          onArrival(std::move(arrival)) {}

    void work();
    Step nextStep();
    void readPage();
    void readNewer();
    bool takeNewer(const Page& page);
    void remember(Page& page) SONRA_REQUIRES(mutex);
    void settle() SONRA_REQUIRES(mutex);
    void answer(Search& search, const std::optional<std::string>& text) SONRA_REQUIRES(mutex);
    void announce() SONRA_REQUIRES(mutex);
    void close();

    void search(const std::string& messageId, Found found) SONRA_REQUIRES(mutex);
    bool isSearched(const std::string& messageId) SONRA_REQUIRES(mutex);
    std::optional<std::string> textOf(const std::string& messageId) SONRA_REQUIRES(mutex);
    bool awaitChange(MutexLock& lock, Deadline deadline) SONRA_REQUIRES(mutex);
};

void HistoryPager::Shared::work() {
    if (!pages) pages = open();
    for (;;) {
        switch (nextStep()) {
            case Step::page:
                readPage();
                break;
            case Step::newer:
                readNewer();
                break;
            case Step::done:
                return;
        }
    }
}

/// What was written since the beginning comes first in a search, but not before the first page:
/// it ends where that began.
HistoryPager::Shared::Step HistoryPager::Shared::nextStep() {
    const MutexLock lock(mutex);
    settle();
    if (!closed) {
        if (!ended && texts.empty()) return Step::page;
        if (std::ranges::any_of(searches, [](const Search& s) { return !s.newerRead; }))
            return Step::newer;
        if (!ended && (ready.size() < pagesAhead || !searches.empty())) return Step::page;
    }
    working = false;
    return Step::done;
}

void HistoryPager::Shared::readPage() {
    auto page = pages->loadOlder(pageSize);
    const bool isLast = page.empty() || pages->isExhausted();
    const MutexLock lock(mutex);
    remember(page);
    if (!page.empty()) ready.push_back(std::move(page));
    ended = isLast;
    late = false;
    announce();
}

/// Reads again from the end, which may have moved since, down to what is known.
void HistoryPager::Shared::readNewer() {
    {
        const MutexLock lock(mutex);
        for (auto& search : searches) search.newerRead = true;
    }
    const auto newer = open();
    while (takeNewer(newer->loadOlder(pageSize))) {
    }
}

/// True if there may be more.
bool HistoryPager::Shared::takeNewer(const Page& page) {
    const MutexLock lock(mutex);
    bool isNew = !page.empty();
    for (const auto& message : page)
        isNew = texts.try_emplace(message.messageId, message.text).second && isNew;
    return isNew && !closed;
}

void HistoryPager::Shared::remember(Page& page) {
    for (auto& message : page)
        texts.try_emplace(message.messageId, std::exchange(message.text, {}));
}

/// Answers the searches that are over: found, or nowhere left to look.
void HistoryPager::Shared::settle() {
    for (auto search = searches.begin(); search != searches.end();) {
        const auto text = textOf(search->messageId);
        if (text || (ended && search->newerRead)) {
            answer(*search, text);
            search = searches.erase(search);
        } else {
            ++search;
        }
    }
    changed.notify_all();
}

/// Gives the callbacks away, so that they end where they run.
void HistoryPager::Shared::answer(Search& search, const std::optional<std::string>& text) {
    for (auto& found : search.found) loop.post([found = std::move(found), text] { found(text); });
}

/// Under the lock, so that after `close` the loop is left alone.
void HistoryPager::Shared::announce() {
    changed.notify_all();
    if (closed) return;
    loop.post([self = weak_from_this()] {
        const auto shared = self.lock();
        if (!shared) return;
        {
            const MutexLock lock(shared->mutex);
            if (shared->closed) return;
        }
        shared->onArrival();
    });
}

void HistoryPager::Shared::close() {
    const MutexLock lock(mutex);
    closed = true;
    for (auto& search : searches) answer(search, std::nullopt);
    searches.clear();
}

void HistoryPager::Shared::search(const std::string& messageId, Found found) {
    auto search = std::ranges::find(searches, messageId, &Search::messageId);
    if (search == searches.end()) search = searches.insert(searches.end(), {messageId, {}, false});
    if (found) search->found.push_back(std::move(found));
}

bool HistoryPager::Shared::isSearched(const std::string& messageId) {
    return std::ranges::find(searches, messageId, &Search::messageId) != searches.end();
}

std::optional<std::string> HistoryPager::Shared::textOf(const std::string& messageId) {
    const auto text = texts.find(messageId);
    if (text == texts.end()) return std::nullopt;
    return text->second;
}

/// Waits for a change. False if nobody should wait any longer; what is waited for may have come all
/// the same when the time ran out, so it is to be looked at after each call.
bool HistoryPager::Shared::awaitChange(MutexLock& lock, Deadline deadline) {
    if (late || deadline <= Deadline::clock::now()) return false;
    if (lock.waitUntil(changed, deadline) == std::cv_status::timeout) late = true;
    return true;
}

HistoryPager::HistoryPager(MainLoop& loop, std::function<std::unique_ptr<HistoryPages>()> open,
                           int pageSize, int pagesAhead, std::function<void()> onArrival)
    : shared_(std::make_shared<Shared>(loop, std::move(open), pageSize, pagesAhead,
                                       std::move(onArrival))) {
    readAhead();
}

HistoryPager::~HistoryPager() {
    shared_->close();
}

/// Gets the reading thread to look for something to do.
void HistoryPager::readAhead() {
    {
        const MutexLock lock(shared_->mutex);
        if (std::exchange(shared_->working, true)) return;
    }
    queue_.post([shared = shared_] { shared->work(); });
}

std::optional<HistoryPager::Page> HistoryPager::next(Deadline deadline) {
    SONRA_ASSERT_MAIN_THREAD();
    readAhead();
    std::optional<Page> page;
    {
        auto& shared = *shared_;
        MutexLock lock(shared.mutex);
        while (shared.ready.empty() && !shared.ended && shared.awaitChange(lock, deadline)) {
        }
        if (shared.ready.empty()) return std::nullopt;
        shared.late = false;
        page = std::move(shared.ready.front());
        shared.ready.pop_front();
    }
    readAhead();
    return page;
}

bool HistoryPager::isExhausted() const {
    const MutexLock lock(shared_->mutex);
    return shared_->ended && shared_->ready.empty();
}

std::optional<std::string> HistoryPager::textOf(const std::string& messageId) const {
    const MutexLock lock(shared_->mutex);
    return shared_->textOf(messageId);
}

std::optional<std::string> HistoryPager::searchText(const std::string& messageId,
                                                    Deadline deadline) {
    SONRA_ASSERT_MAIN_THREAD();
    if (auto text = textOf(messageId)) return text;
    {
        const MutexLock lock(shared_->mutex);
        shared_->search(messageId, nullptr);
    }
    readAhead();
    auto& shared = *shared_;
    MutexLock lock(shared.mutex);
    while (shared.isSearched(messageId) && shared.awaitChange(lock, deadline)) {
    }
    return shared.textOf(messageId);
}

void HistoryPager::lookUp(const std::string& messageId, Found found) {
    SONRA_ASSERT_MAIN_THREAD();
    if (auto text = textOf(messageId)) return found(std::move(text));
    {
        const MutexLock lock(shared_->mutex);
        shared_->search(messageId, std::move(found));
    }
    readAhead();
}

}  // namespace sonra
