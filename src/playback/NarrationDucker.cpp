#include "playback/NarrationDucker.h"

#include "frame/ThreadAffinity.h"
#include "playback/NarrationDuckTarget.h"

namespace sonra {

void NarrationDucker::duck() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!enabled_ || isDucked_) return;
    pausedBeforeDuck_ = queue_.paused();
    // First, for the pause runs callbacks that may ask.
    isDucked_ = true;
    queue_.setPaused(true);
}

void NarrationDucker::unduck() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!isDucked_) return;
    isDucked_ = false;
    if (queue_.paused()) queue_.setPaused(pausedBeforeDuck_);
}

}  // namespace sonra
