#include "ingest/LookPauses.h"

#include <algorithm>

namespace sonra {
namespace {

constexpr int timesTheLook = 10;

}  // namespace

bool LookPauses::isPaused(const std::string& transcript, Time now) const {
    const MutexLock lock(mutex_);
    const auto found = pauses_.find(transcript);
    if (found == pauses_.end()) return false;
    const auto& [start, length] = found->second;
    return now >= start && now - start < length;
}

void LookPauses::lookRanOut(const std::string& transcript, Time now, Duration took) {
    const MutexLock lock(mutex_);
    auto& pause = pauses_[transcript];
    pause = {now, std::min(longest, std::max(took * timesTheLook, pause.length * 2))};
}

void LookPauses::lookSucceeded(const std::string& transcript) {
    const MutexLock lock(mutex_);
    pauses_.erase(transcript);
}

}  // namespace sonra
