#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// The addresses ("tts://…") that a command line consists of, the program's name aside; empty for
/// any other command line, which `parseMode` reads. Their scheme is in small letters, whatever it
/// was written in; nothing else about them is looked at.
std::vector<std::string> launchUrls(const std::vector<std::string>& args);

/// The same address with its scheme in small letters; any other text as it is.
std::string withPlainScheme(std::string url);

/// What became of addresses that were to be handed to the service of this user.
struct UrlHandover {
    enum class Outcome {
        done,         ///< it has them
        isService,    ///< there was none: this process now holds the service's lock
        unanswered,   ///< a service was sent them and didn't answer; it may yet open them
        unreachable,  ///< another process holds the lock and took them no way
        noLock        ///< none was reached, and the lock can't be taken by anybody
    };
    Outcome outcome = Outcome::noLock;
    std::optional<pid_t> holder;  ///< who holds the lock, as far as it is known
};

/// How long somebody is waited for who wants addresses opened.
struct UrlPatience {
    std::chrono::milliseconds all{5000};
    /// A service reads within milliseconds; one on a busy machine gets its time before other ways
    /// are tried, and goes on being waited for beside them.
    std::chrono::milliseconds reading{2000};
};

/// What became of addresses that were sent one more way.
enum class UrlDelivery {
    taken,      ///< the service has them
    notTaken,   ///< nobody was there, or who was there refused
    unanswered  ///< they went out, and whether they were taken isn't known
};

/// One more way to a service that runs.
using OtherWay = std::function<UrlDelivery(const std::vector<std::string>& urls)>;

/// Hands the addresses to the service that runs: at the default socket, at the one that its own
/// command line names, or the other way. Where there is none, this process takes the service's lock
/// at once, so that of several only one comes to be the service. Who holds the lock may just be
/// starting or ending, so all of it is tried until `patience` is over. A service is sent them over
/// its socket once, and while it doesn't read them the other way is tried once: a service that is
/// busy reads everything in the end. For the same reason the other way isn't tried again once they
/// went out there unanswered. Blocks; a try more or less beyond `patience`.
UrlHandover handOverUrls(const std::vector<std::string>& urls, const OtherWay& otherWay,
                         UrlPatience patience = {});

}  // namespace sonra
