#include "control/TailOffsetStore.h"

#include <map>
#include <utility>

#include "frame/Mutex.h"
#include "frame/SerialQueue.h"
#include "frame/ServiceState.h"
#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

using Offsets = std::map<std::string, std::int64_t>;

void writeRows(Json& document, const Offsets& offsets) {
    const auto sessions = document.find("sessions");
    if (sessions == document.end() || !sessions->is_array()) return;
    for (auto& row : *sessions) {
        const auto id = json::stringAt(row, "id");
        if (!id) continue;
        const auto found = offsets.find(*id);
        if (found != offsets.end()) row["offset"] = found->second;
    }
}

}  // namespace

struct TailOffsetStore::State {
    SerialQueue queue{"sonra.cursors"};
    Offsets known;  ///< main thread only
    Mutex mutex;
    Offsets waiting SONRA_GUARDED_BY(mutex);

    /// Everything that was reported while an earlier write was under way goes into one write.
    void flush() {
        Offsets offsets;
        {
            const MutexLock lock(mutex);
            offsets.swap(waiting);
        }
        if (!offsets.empty())
            ServiceState::update([&](Json& document) { writeRows(document, offsets); });
    }
};

TailOffsetStore::TailOffsetStore() : state_(std::make_shared<State>()) {}

TailOffsetStore::~TailOffsetStore() = default;

void TailOffsetStore::seed(const std::string& sessionId, std::int64_t offset) {
    SONRA_ASSERT_MAIN_THREAD();
    state_->known[sessionId] = offset;
}

void TailOffsetStore::report(const std::string& sessionId, std::int64_t offset) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto [known, isNew] = state_->known.try_emplace(sessionId, offset);
    if (!isNew && known->second == offset) return;
    known->second = offset;
    {
        const MutexLock lock(state_->mutex);
        state_->waiting[sessionId] = offset;
    }
    state_->queue.post([weak = std::weak_ptr(state_)] {
        if (const auto state = weak.lock()) state->flush();
    });
}

void TailOffsetStore::forget(const std::string& sessionId) {
    SONRA_ASSERT_MAIN_THREAD();
    state_->known.erase(sessionId);
}

void TailOffsetStore::drain() {
    state_->queue.sync([] {});
}

}  // namespace sonra
