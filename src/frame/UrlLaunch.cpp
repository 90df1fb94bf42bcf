#include "frame/UrlLaunch.h"

#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <map>
#include <string_view>
#include <thread>
#include <utility>
#include <variant>

#include "frame/AtomicFile.h"
#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/ProcessMode.h"
#include "frame/ServiceLock.h"
#include "frame/UniqueFd.h"
#include "frame/UnixSocket.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::string_view prefix = "tts://";
/// The oldest version of the socket's protocol: every service knows it.
constexpr int protocol = 1;
constexpr std::chrono::milliseconds betweenTries{50};

bool isUrl(const std::string& argument) {
    return strncasecmp(argument.c_str(), prefix.data(), prefix.size()) == 0;
}

/// Empty if it can't be read: a process may end between the opening and the reading of its file.
std::string contents(const std::string& path) {
    return AtomicFile::read(path).value_or("");
}

std::string lockPath() {
    return sharedDirectory() + "/sonra.lock";
}

/// The process that the lock's file names. Worth something only while the lock is held.
std::optional<pid_t> stampedPid() {
    const auto stamp = contents(lockPath());
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(stamp.data(), stamp.data() + stamp.size(), pid);
    if (error != std::errc() || pid <= 0) return std::nullopt;
    return pid;
}

std::vector<std::string> commandLine(const std::string& process) {
    const auto all = contents(process + "/cmdline");
    std::vector<std::string> args;
    for (std::size_t at = 0; at < all.size();) {
        const auto end = std::min(all.find('\0', at), all.size());
        args.push_back(all.substr(at, end - at));
        at = end + 1;
    }
    return args;
}

/// Where the service of that process listens, read from its command line.
std::optional<std::string> socketOf(pid_t pid) {
    const auto process = "/proc/" + std::to_string(pid);
    const auto mode = parseMode(commandLine(process), [] { return false; });
    const auto* running = std::get_if<Mode>(&mode);
    const auto* service = running ? std::get_if<ServiceMode>(running) : nullptr;
    if (!service) return std::nullopt;
    std::error_code error;
    const auto directory = fs::read_symlink(process + "/cwd", error);
    return error ? service->socket : (directory / service->socket).string();
}

bool sendAll(int fd, std::string_view rest) {
    while (!rest.empty()) {
        const auto sent = send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

/// Addresses on their way to services, each of which is sent them once, with the command "open".
///
/// The system takes a line for a program that hangs, so that the line went out says nothing: only
/// an end that hangs up after all of it has read it. The connections stay open meanwhile.
class OpenLines {
  public:
    OpenLines(const std::vector<std::string>& urls, std::chrono::milliseconds reading)
        : line_(json::dump({{"cmd", "open"}, {"proto", protocol}, {"urls", urls}}) + "\n"),
          reading_(reading) {}

    /// Whether the service at the socket has read them. Waits until the time for that is over, and
    /// no more when asked again.
    bool isReadAt(const std::string& socketPath) {
        auto& sent = sent_[socketPath];
        if (!sent.fd) {
            sent = {UniqueFd(connectUnixSocket(socketPath)), Clock::now() + reading_};
            if (!sent.fd || !sendAll(sent.fd.get(), line_) || shutdown(sent.fd.get(), SHUT_WR) != 0)
                sent.fd.reset();
        }
        while (sent.fd) {
            if (!isReadable(sent)) return false;
            char said[256];
            const auto got = recv(sent.fd.get(), said, sizeof said, MSG_DONTWAIT);
            if (got == 0) return true;
            // An end that closes with some of it unread shows as an error.
            if (got < 0) sent.fd.reset();
        }
        return false;
    }
    /// Whether a service has been sent them and neither read them nor hung up.
    [[nodiscard]] bool areUnread() const {
        return std::any_of(sent_.begin(), sent_.end(),
                           [](const auto& entry) { return static_cast<bool>(entry.second.fd); });
    }

  private:
    struct Sent {
        UniqueFd fd;
        Clock::time_point until;
    };

    static bool isReadable(const Sent& sent) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(sent.until - Clock::now());
        pollfd readable{sent.fd.get(), POLLIN, 0};
        return poll(&readable, 1, std::max(0, static_cast<int>(left.count()))) > 0;
    }

    const std::string line_;
    const std::chrono::milliseconds reading_;
    std::map<std::string, Sent> sent_;  ///< by socket
};

bool isReadAtOwnSocket(std::optional<pid_t> holder, OpenLines& lines) {
    const auto own = holder ? socketOf(*holder) : std::nullopt;
    return own && *own != defaultServiceSocketPath() && lines.isReadAt(*own);
}

}  // namespace

std::vector<std::string> launchUrls(const std::vector<std::string>& args) {
    if (args.size() < 2 || !std::all_of(args.begin() + 1, args.end(), isUrl)) return {};
    std::vector<std::string> urls;
    std::transform(args.begin() + 1, args.end(), std::back_inserter(urls), withPlainScheme);
    return urls;
}

std::string withPlainScheme(std::string url) {
    if (isUrl(url)) url.replace(0, prefix.size(), prefix);
    return url;
}

UrlHandover handOverUrls(const std::vector<std::string>& urls, const OtherWay& otherWay,
                         UrlPatience patience) {
    using Outcome = UrlHandover::Outcome;
    const auto deadline = Clock::now() + patience.all;
    OpenLines lines(urls, patience.reading);
    bool wasOtherWayTried = false;
    bool isOtherWayUnanswered = false;
    for (;;) {
        // Whoever listens there is the service, also where its lock's file was removed.
        if (lines.isReadAt(defaultServiceSocketPath())) return {Outcome::done, {}};
        // Never tried out and given back: that would turn away one that just starts.
        const auto lock = tryServiceLock();
        if (lock == ServiceLockTry::taken) return {Outcome::isService, {}};
        if (lock == ServiceLockTry::failed) return {Outcome::noLock, {}};
        const auto holder = stampedPid();
        if (isReadAtOwnSocket(holder, lines)) return {Outcome::done, holder};
        if (!isOtherWayUnanswered &&
            (!lines.areUnread() || !std::exchange(wasOtherWayTried, true))) {
            const auto delivery = otherWay(urls);
            if (delivery == UrlDelivery::taken) return {Outcome::done, holder};
            isOtherWayUnanswered = delivery == UrlDelivery::unanswered;
        }
        if (Clock::now() >= deadline)
            return {lines.areUnread() || isOtherWayUnanswered ? Outcome::unanswered
                                                              : Outcome::unreachable,
                    holder};
        std::this_thread::sleep_for(betweenTries);
    }
}

}  // namespace sonra
