#pragma once

#include <chrono>
#include <map>
#include <string>

#include "frame/Mutex.h"

namespace sonra {

/// Tells for how long transcripts are left alone whose last look was in vain: it
/// ran out of its time, or met with a lock.
///
/// The pause is ten times as long as the look, and twice as long after each further one in vain, up
/// to five minutes: by then a look costs next to nothing, and one may succeed yet, as when the file
/// is in memory. Any thread.
class LookPauses {
  public:
    using Time = std::chrono::system_clock::time_point;
    using Duration = std::chrono::system_clock::duration;

    static constexpr Duration longest = std::chrono::minutes(5);

    /// True until the pause is over, or the clock is set back.
    bool isPaused(const std::string& transcript, Time now) const;
    void lookRanOut(const std::string& transcript, Time now, Duration took);
    void lookSucceeded(const std::string& transcript);

  private:
    struct Pause {
        Time start;
        Duration length;
    };

    mutable Mutex mutex_;
    std::map<std::string, Pause> pauses_ SONRA_GUARDED_BY(mutex_);
};

}  // namespace sonra
