#pragma once

#include "speech/VoiceID.h"

namespace sonra {

/// How a text is to be spoken.
struct SpeechConfig {
    VoiceID voice;
    double speed = 1.0;  ///< 1.0 is normal
    int volume = 100;    ///< percent, for a process that plays by itself

    bool operator==(const SpeechConfig&) const = default;
};

}  // namespace sonra
