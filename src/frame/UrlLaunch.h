#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// The addresses ("tts://…") that a command line consists of, the program's name aside; empty for
/// any other command line, which `parseMode` reads. Nothing else about them is looked at.
std::vector<std::string> launchUrls(const std::vector<std::string>& args);

/// Asks the service that listens at the socket to open the addresses, with the command "open"; true
/// if one has them. Takes at most about two seconds.
bool tryOpenInExistingService(const std::string& socketPath, const std::vector<std::string>& urls);

/// What became of addresses that were to be handed to the service of this user.
struct UrlHandover {
    enum class Outcome {
        done,        ///< it has them
        noService,   ///< nobody holds the service's lock: the caller is to become the service
        unreachable  ///< somebody does and took them no way
    };
    Outcome outcome = Outcome::noService;
    std::optional<pid_t> holder;  ///< the service that couldn't be reached, as far as it is known
};

/// One more way to a service that runs; true if it has the addresses.
using OtherWay = std::function<bool(const std::vector<std::string>& urls)>;

/// Hands the addresses to the service that runs: at the default socket, at the one that its own
/// command line names, or the other way. One that holds the lock may just be starting, so it is
/// asked until `patience` is over. Blocks; a try more or less beyond `patience`.
UrlHandover handOverUrls(const std::vector<std::string>& urls, const OtherWay& otherWay,
                         std::chrono::milliseconds patience);

}  // namespace sonra
