#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace sonra {

/// What happened below a watched root within one batch.
struct TreeEvents {
    std::vector<std::string> paths;  ///< files that were made, changed, moved or removed
    bool rescan = false;  ///< events were lost, or the root was moved: look at everything
};

/// One running watch; when its destructor has returned its callback doesn't run any more. Any
/// thread, the callback's own too.
class TreeWatch {
  public:
    virtual ~TreeWatch() = default;
};

/// Watches a directory and the directories in it, one level deep, for changes of their files.
class TreeWatcher {
  public:
    /// Runs on a thread of the watcher's; must not block.
    using Callback = std::function<void(TreeEvents)>;

    virtual ~TreeWatcher() = default;

    /// From now on. The root needn't be there yet; when it appears that is a demand to rescan. The
    /// first event after a quiet time is reported at once, those of the next half second together.
    /// Directories that appear are watched, and the files already in them count as made. Where not
    /// everything can be watched, a demand to rescan comes regularly instead. Null if nothing can
    /// be watched. Any thread.
    [[nodiscard]] virtual std::unique_ptr<TreeWatch> watch(const std::string& root,
                                                           Callback onEvents) = 0;
};

}  // namespace sonra
