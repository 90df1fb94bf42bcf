#pragma once

#include <memory>
#include <string>

#include "platform/FileWatcher.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Watches files and directories through one inotify descriptor, which costs nothing while nothing
/// happens.
///
/// Main thread only. Watches of one file share the kernel's watch. All events of one wake-up reach
/// a watch as one call; a watch, or the watcher itself, may be destroyed inside such a call.
/// Watches may outlive the watcher, they are silent then. When the kernel's limits are reached
/// `watch` gives null and the log says so once. Events that the kernel had to drop are reported to
/// every watch as `renamed`, so that its owner looks and arms anew.
class InotifyFileWatcher : public FileWatcher {
  public:
    explicit InotifyFileWatcher(MainLoop& loop);
    ~InotifyFileWatcher() override;
    InotifyFileWatcher(const InotifyFileWatcher&) = delete;
    InotifyFileWatcher& operator=(const InotifyFileWatcher&) = delete;

    [[nodiscard]] std::unique_ptr<FileWatch> watch(const std::string& path,
                                                   Callback onEvents) override;

  private:
    struct Target;
    class State;
    class Watch;

    std::shared_ptr<State> state_;
    LoopHandle readable_;
};

}  // namespace sonra
