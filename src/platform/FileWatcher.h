#pragma once

#include <functional>
#include <memory>
#include <string>

namespace sonra {

/// What happened to a watched path since the last report.
struct FileEvents {
    bool written = false;  ///< content changed or grew, or an entry of a directory changed
    bool renamed =
        false;  ///< the watched name no longer refers to the watched file, or events were lost
    bool removed = false;
};

/// One armed watch; destroying it ends it, and its callback doesn't run any more.
class FileWatch {
  public:
    virtual ~FileWatch() = default;
};

/// Watches single files or directories for changes. Main thread only. Events that arrive together
/// are reported once.
class FileWatcher {
  public:
    using Callback = std::function<void(FileEvents)>;

    virtual ~FileWatcher() = default;

    /// Null if the path can't be watched (it doesn't exist yet, or the system's limit is reached).
    [[nodiscard]] virtual std::unique_ptr<FileWatch> watch(const std::string& path,
                                                           Callback onEvents) = 0;
};

}  // namespace sonra
