#include "frame/UrlLaunch.h"

#include <poll.h>
#include <strings.h>
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
/// A service reads within milliseconds; one on a busy machine gets its time.
constexpr std::chrono::seconds hangUpLimit{2};

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

bool sendAll(int fd, std::string_view rest) {
    while (!rest.empty()) {
        const auto sent = send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        rest.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

/// Whether the other end has read everything and hung up. The system takes a line for a program
/// that hangs, so that the line went out says nothing; and an end that closes with some of it
/// unread shows as an error.
bool isReadToTheEnd(int fd) {
    if (shutdown(fd, SHUT_WR) != 0) return false;
    const auto deadline = Clock::now() + hangUpLimit;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        pollfd hangUp{fd, POLLIN, 0};
        if (left <= 0 || poll(&hangUp, 1, static_cast<int>(left)) <= 0) return false;
        char said[256];
        const auto got = recv(fd, said, sizeof said, MSG_DONTWAIT);
        if (got <= 0) return got == 0;
    }
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

bool tryOpenInExistingService(const std::string& socketPath, const std::vector<std::string>& urls) {
    const UniqueFd fd(connectUnixSocket(socketPath));
    if (!fd) return false;
    const std::string line =
        json::dump({{"cmd", "open"}, {"proto", protocol}, {"urls", urls}}) + "\n";
    return sendAll(fd.get(), line) && isReadToTheEnd(fd.get());
}

UrlHandover handOverUrls(const std::vector<std::string>& urls, const OtherWay& otherWay,
                         std::chrono::milliseconds patience) {
    using Outcome = UrlHandover::Outcome;
    const auto deadline = Clock::now() + patience;
    for (;;) {
        // Whoever listens there is the service, also where its lock's file was removed.
        if (tryOpenInExistingService(defaultServiceSocketPath(), urls)) return {Outcome::done, {}};
        // Never tried out and given back: that would turn away one that just starts.
        const auto lock = tryServiceLock();
        if (lock == ServiceLockTry::taken) return {Outcome::isService, {}};
        if (lock == ServiceLockTry::failed) return {Outcome::noLock, {}};
        const auto holder = stampedPid();
        if (tryOwnSocket(holder, urls) || otherWay(urls)) return {Outcome::done, holder};
        if (Clock::now() >= deadline) return {Outcome::unreachable, holder};
        std::this_thread::sleep_for(betweenTries);
    }
}

}  // namespace sonra
