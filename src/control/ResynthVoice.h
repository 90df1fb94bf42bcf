#pragma once

#include <functional>
#include <memory>

#include "history/ResynthProvider.h"
#include "speech/SpeechConfig.h"
#include "speech/SpeechEngine.h"

namespace sonra {

/// The function that speaks a message of the history anew, into a file: it blocks its caller, the
/// history's synthesis queue. `config` is asked once a message. A text of which cleaning leaves
/// nothing, and a failure, which is logged, give false.
ResynthProvider::Synth makeResynthSynth(std::shared_ptr<SpeechEngine> engine,
                                        std::function<SpeechConfig()> config);

}  // namespace sonra
