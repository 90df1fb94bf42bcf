#pragma once

#include <memory>
#include <vector>

#include "speech/SpeechEngine.h"

namespace sonra::EngineRegistry {

/// The first candidate that serves the voice's namespace and is ready; null if there is none.
/// Engines of other namespaces aren't asked.
std::shared_ptr<SpeechEngine> resolve(const VoiceID& voice,
                                      const std::vector<std::shared_ptr<SpeechEngine>>& candidates);

}  // namespace sonra::EngineRegistry
