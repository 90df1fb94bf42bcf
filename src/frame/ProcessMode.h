#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace sonra {

/// The long-lived service.
struct ServiceMode {
    std::string socket;
    bool operator==(const ServiceMode&) const = default;
};

/// The caption-only server.
struct CaptionsServeLegacyMode {
    std::string socket;
    bool operator==(const CaptionsServeLegacyMode&) const = default;
};

/// Plays one sound file and ends.
struct PlayerArgs {
    std::string wav;
    float volume = 1.0F;  ///< linear gain, 0.0 to 1.0
    std::string title = "Claude narration";
    std::string artist = "TTS";
    std::string snippet;
    bool captions = false;
    std::optional<std::string> captionsSock;  ///< socket of a caption server to use
    bool operator==(const PlayerArgs&) const = default;
};

using Mode = std::variant<ServiceMode, CaptionsServeLegacyMode, PlayerArgs>;

/// The process ends at once, with this status and this text on standard error.
struct EarlyExit {
    int status = 0;
    std::string standardError;
    bool operator==(const EarlyExit&) const = default;
};

using ModeDecision = std::variant<Mode, EarlyExit>;

/// What a command line asks for; `args` with the program's name first. Acts only for a plain
/// launch, where `notifyExistingService` tells whether a service runs already. The caller does the
/// exiting.
ModeDecision parseMode(const std::vector<std::string>& args,
                       const std::function<bool()>& notifyExistingService);
ModeDecision parseMode(const std::vector<std::string>& args);

/// `$HOME/.claude/tts/service.sock`.
std::string defaultServiceSocketPath();

/// Tells a service at the default socket that it was started again; true if one answered the
/// connection. The line carries no protocol version on purpose: the service notes it in its log and
/// does nothing, so that a second launch shows nothing. Takes at most about two seconds.
bool tryNotifyExistingService();

}  // namespace sonra
