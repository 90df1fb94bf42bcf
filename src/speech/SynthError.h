#pragma once

#include <stdexcept>
#include <string>

#include "speech/VoiceID.h"

namespace sonra {

/// Why a text could not be spoken; `what()` is a sentence for the user.
class SynthError : public std::runtime_error {
  public:
    enum class Kind {
        unavailable,      ///< something must be set up first
        synthesisFailed,  ///< this request failed; another may not
        noEngine          ///< no engine speaks for the voice
    };

    static SynthError unavailable(const std::string& text);
    static SynthError synthesisFailed(const std::string& detail);
    static SynthError noEngine(VoiceID::Namespace ns);

    [[nodiscard]] Kind kind() const { return kind_; }

  private:
    SynthError(Kind kind, const std::string& description)
        : std::runtime_error(description), kind_(kind) {}

    Kind kind_;
};

}  // namespace sonra
