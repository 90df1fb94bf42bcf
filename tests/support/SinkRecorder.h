#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "frame/Mutex.h"
#include "support/Recording.h"
#include "support/TestProcess.h"

namespace sonra::test {

/// Listens to a sink's monitor in steps of 5 ms as long as it lives. Holding it also makes a null
/// sink work in such small steps.
class SinkRecorder {
  public:
    explicit SinkRecorder(const std::string& sink = "speaker");
    ~SinkRecorder();
    SinkRecorder(const SinkRecorder&) = delete;
    SinkRecorder& operator=(const SinkRecorder&) = delete;

    /// Everything since the start.
    [[nodiscard]] Recording recording() const;
    [[nodiscard]] std::size_t size() const;
    /// The last `gap` holds nothing audible.
    [[nodiscard]] bool silentFor(std::chrono::milliseconds gap) const;
    /// Something audible came in at or after sample `from`.
    [[nodiscard]] bool heardSince(std::size_t from) const;

  private:
    void listen();

    TestProcess parec_;
    mutable Mutex mutex_;
    Recording recording_ SONRA_GUARDED_BY(mutex_);
    std::atomic<bool> deaf_ = false;  ///< the sink or its server is gone
    std::thread thread_;
};

}  // namespace sonra::test
