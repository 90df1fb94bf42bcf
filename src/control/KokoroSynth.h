#pragma once

#include <functional>
#include <memory>

#include "ingest/NarrationPump.h"
#include "speech/KokoroWorkerEngine.h"
#include "speech/SpeechConfig.h"
#include "speech/SpeechEngine.h"

namespace sonra::NativeNarration {

/// The function that turns a cleaned message into sound files, chunk by chunk, in order: by the
/// worker, and where that can't, by a process of the engine's own. It blocks its caller, a
/// session's synthesis queue, until the message is done. `config` is asked once a message. A chunk
/// that yields no sound is logged and left out.
NarrationPump::Synth makeKokoroSynth(std::shared_ptr<SpeechEngine> engine,
                                     std::shared_ptr<KokoroWorkerEngine> worker,
                                     std::function<SpeechConfig()> config);

}  // namespace sonra::NativeNarration
