#include "frame/UrlLaunch.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>
#include <thread>
#include <variant>

#include "frame/Home.h"
#include "frame/Json.h"
#include "frame/ProcessMode.h"
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

std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string lockPath() {
    return sharedDirectory() + "/sonra.lock";
}

/// Whether a process holds the service's lock. Only the lock decides; it is tried, shared so that
/// several who try don't take each other for a service, and given back at once.
bool isServiceRunning() {
    const UniqueFd fd(open(lockPath().c_str(), O_RDONLY | O_CLOEXEC));
    return fd && flock(fd.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
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

bool tryOwnSocket(std::optional<pid_t> holder, const std::vector<std::string>& urls) {
    const auto own = holder ? socketOf(*holder) : std::nullopt;
    return own && *own != defaultServiceSocketPath() && tryOpenInExistingService(*own, urls);
}

}  // namespace

std::vector<std::string> launchUrls(const std::vector<std::string>& args) {
    if (args.size() < 2 || !std::all_of(args.begin() + 1, args.end(), isUrl)) return {};
    return {args.begin() + 1, args.end()};
}

bool tryOpenInExistingService(const std::string& socketPath, const std::vector<std::string>& urls) {
    const UniqueFd fd(connectUnixSocket(socketPath));
    if (!fd) return false;
    const std::string line =
        json::dump({{"cmd", "open"}, {"proto", protocol}, {"urls", urls}}) + "\n";
    std::string_view rest = line;
    while (!rest.empty()) {
        const auto sent = send(fd.get(), rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

UrlHandover handOverUrls(const std::vector<std::string>& urls, const OtherWay& otherWay,
                         std::chrono::milliseconds patience) {
    using Outcome = UrlHandover::Outcome;
    const auto deadline = Clock::now() + patience;
    for (;;) {
        // Whoever listens there is the service, also where its lock's file was removed.
        if (tryOpenInExistingService(defaultServiceSocketPath(), urls)) return {Outcome::done, {}};
        if (!isServiceRunning()) return {Outcome::noService, {}};
        const auto holder = stampedPid();
        if (tryOwnSocket(holder, urls) || otherWay(urls)) return {Outcome::done, holder};
        if (Clock::now() >= deadline) return {Outcome::unreachable, holder};
        std::this_thread::sleep_for(betweenTries);
    }
}

}  // namespace sonra
