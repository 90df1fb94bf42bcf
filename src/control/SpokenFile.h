#pragma once

#include <optional>
#include <string>

#include "speech/SpeechConfig.h"
#include "speech/SpeechEngine.h"
#include "speech/SynthError.h"

namespace sonra {

/// Has `engine` speak the whole text into the file at `path`, and blocks until it is done: never on
/// the main thread. The reason if no sound came of it; no file is left then.
std::optional<SynthError> speakToFile(SpeechEngine& engine, const std::string& text,
                                      const SpeechConfig& config, const std::string& path);

}  // namespace sonra
