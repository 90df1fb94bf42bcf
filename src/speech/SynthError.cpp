#include "speech/SynthError.h"

namespace sonra {

SynthError SynthError::unavailable(const std::string& text) {
    return {Kind::unavailable, "Speech engine unavailable: " + text};
}

SynthError SynthError::synthesisFailed(const std::string& detail) {
    return {Kind::synthesisFailed, "Synthesis failed: " + detail};
}

SynthError SynthError::noEngine(VoiceID::Namespace ns) {
    return {Kind::noEngine,
            "No speech engine for voice namespace " + std::string(VoiceID::rawValue(ns)) + "."};
}

}  // namespace sonra
