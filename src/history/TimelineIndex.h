#pragma once

#include <deque>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "history/MessageRef.h"

namespace sonra {

/// Messages in order of time, to be counted back from the newest. A value; an older page goes in
/// front at the cost of the page alone.
class TimelineIndex {
  public:
    TimelineIndex() = default;
    /// `refs` has the oldest first.
    explicit TimelineIndex(std::vector<MessageRef> refs, std::optional<int> totalKnown = {});

    /// Oldest first.
    [[nodiscard]] const std::deque<MessageRef>& refs() const { return refs_; }
    [[nodiscard]] std::optional<int> totalKnown() const { return totalKnown_; }
    [[nodiscard]] int count() const { return static_cast<int>(refs_.size()); }
    [[nodiscard]] bool contains(const std::string& messageId) const {
        return ids_.contains(messageId);
    }

    /// The message so many steps back from the newest, which is 0; null outside of what is known.
    /// Valid until the index changes.
    [[nodiscard]] const MessageRef* ref(int backFromNewest) const;

    /// Puts a page, newest first as pages arrive, in front of what is known; messages that are in
    /// it already are left out.
    void prependOlder(const std::vector<MessageRef>& older);
    /// Takes a message out, if it is there.
    void remove(const std::string& messageId);

  private:
    std::deque<MessageRef> refs_;
    std::unordered_set<std::string> ids_;
    std::optional<int> totalKnown_;
};

}  // namespace sonra
