#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "search/ProjectsWalk.h"
#include "search/SessionMeta.h"
#include "search/SessionSnapshot.h"

namespace sonra {

/// The sessions in memory, by path and by id. One transcript is one session; two transcripts may
/// have one id, then the newest answers to it. One thread at a time.
class Catalogue {
  public:
    using Entry = std::shared_ptr<const SessionMeta>;

    /// Tells what was published before and what later.
    using Moment = std::uint64_t;

    /// What a walk of the tree comes to.
    struct Difference {
        std::vector<std::string> toRead;  ///< paths that are new or changed
        bool hasLost = false;             ///< sessions whose files are gone were dropped
    };

    /// In place of what was there for its path.
    void publish(Entry entry);
    /// False if there was nothing.
    bool remove(const std::string& path);
    [[nodiscard]] Moment now() const { return published_; }
    /// Drops every session whose path isn't in `walked`, but none that was published after the
    /// moment at which the walk began: it may have come to a directory that was listed by then.
    Difference adopt(const std::unordered_map<std::string, StatAttr>& walked, Moment walkBegan);

    /// Of several the first of the snapshot.
    [[nodiscard]] Entry withId(const std::string& sessionId) const;
    /// Newest first, of equal times by path. Kept until the next change.
    [[nodiscard]] const SessionSnapshot& snapshot();

  private:
    struct Place {
        Entry entry;
        Moment published = 0;
    };

    void forgetId(const SessionMeta& entry);

    Moment published_ = 0;
    std::unordered_map<std::string, Place> byPath_;
    std::unordered_map<std::string, std::vector<Entry>> byId_;
    std::optional<SessionSnapshot> snapshot_;
};

}  // namespace sonra
