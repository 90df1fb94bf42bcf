#pragma once

#include <string>

#include "speech/VoiceID.h"

namespace sonra {

/// What an engine is and can do.
struct EngineDescriptor {
    std::string id;
    VoiceID::Namespace ns = VoiceID::Namespace::kokoro;
    bool supportsSpeed = false;
    bool supportsStreaming = false;

    bool operator==(const EngineDescriptor&) const = default;
};

}  // namespace sonra
