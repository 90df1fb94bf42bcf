#pragma once

#include <exception>
#include <string>
#include <utility>

#include "speech/VoiceID.h"

namespace sonra {

/// Why a text could not be spoken; `what()` is a sentence for the user. Copies share nothing: they
/// go from thread to thread.
class SynthError : public std::exception {
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
    [[nodiscard]] const char* what() const noexcept override { return description_.c_str(); }

  private:
    SynthError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
};

}  // namespace sonra
