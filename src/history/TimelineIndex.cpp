#include "history/TimelineIndex.h"

#include <algorithm>
#include <utility>

namespace sonra {

TimelineIndex::TimelineIndex(std::vector<MessageRef> refs, std::optional<int> totalKnown)
    : totalKnown_(totalKnown) {
    for (auto& ref : refs)
        if (ids_.insert(ref.messageId).second) refs_.push_back(std::move(ref));
}

const MessageRef* TimelineIndex::ref(int backFromNewest) const {
    if (backFromNewest < 0 || backFromNewest >= count()) return nullptr;
    return &refs_[refs_.size() - 1 - static_cast<std::size_t>(backFromNewest)];
}

void TimelineIndex::prependOlder(const std::vector<MessageRef>& older) {
    for (const auto& ref : older)
        if (ids_.insert(ref.messageId).second) refs_.push_front(ref);
}

void TimelineIndex::remove(const std::string& messageId) {
    if (ids_.erase(messageId) == 0) return;
    refs_.erase(std::ranges::find(refs_, messageId, &MessageRef::messageId));
}

}  // namespace sonra
