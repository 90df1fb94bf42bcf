#include "speech/EngineRegistry.h"

#include <algorithm>

namespace sonra::EngineRegistry {

std::shared_ptr<SpeechEngine> resolve(
    const VoiceID& voice, const std::vector<std::shared_ptr<SpeechEngine>>& candidates) {
    const auto found = std::find_if(candidates.begin(), candidates.end(), [&](const auto& engine) {
        return engine->descriptor().ns == voice.ns && engine->readiness().isReady();
    });
    return found == candidates.end() ? nullptr : *found;
}

}  // namespace sonra::EngineRegistry
