#pragma once

#include <chrono>

#include "platform/TreeWatcher.h"

namespace sonra {

/// Watches trees through inotify, each with a descriptor and a thread of its own, which sleeps
/// while nothing happens and for half a second after each report.
///
/// Any thread. A watch may outlive its watcher. When the system's limit is reached the log says so
/// once, and until everything is watched again a demand to rescan comes every 30 s.
class InotifyTreeWatcher : public TreeWatcher {
  public:
    struct Times {
        std::chrono::milliseconds latency{500};
        std::chrono::milliseconds rescan{30'000};
    };

    InotifyTreeWatcher();
    explicit InotifyTreeWatcher(Times times);

    [[nodiscard]] std::unique_ptr<TreeWatch> watch(const std::string& root,
                                                   Callback onEvents) override;

  private:
    class Stream;
    class Watch;

    const Times times_;
};

}  // namespace sonra
