#include "linux/SessionBusProbe.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

#include "frame/Patience.h"
#include "frame/UniqueFd.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (auto end = text.find(separator); end != std::string_view::npos;
         end = text.find(separator)) {
        parts.push_back(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    parts.push_back(text);
    return parts;
}

/// Undoes the %xx of addresses.
std::string unescaped(std::string_view text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned char byte = 0;
        const auto* hex = text.data() + i + 1;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::from_chars(hex, hex + 2, byte, 16).ptr == hex + 2) {
            result += static_cast<char>(byte);
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

/// The socket's name as the system takes it; absent for an entry that names none.
std::optional<std::string> socketNameOf(std::string_view entry) {
    constexpr std::string_view scheme = "unix:";
    if (!entry.starts_with(scheme)) return std::nullopt;
    for (const auto field : split(entry.substr(scheme.size()), ',')) {
        if (field.starts_with("path=")) return unescaped(field.substr(5));
        if (field.starts_with("abstract=")) return '\0' + unescaped(field.substr(9));
    }
    return std::nullopt;
}

UniqueFd connectTo(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (name.size() >= sizeof address.sun_path) return UniqueFd();
    std::memcpy(address.sun_path, name.data(), name.size());
    const bool isAbstract = name.starts_with('\0');
    const auto length = offsetof(sockaddr_un, sun_path) + name.size() + (isAbstract ? 0 : 1);
    // Not blocking: a bus that no longer accepts has a full queue, which would hold us.
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd || connect(fd.get(), reinterpret_cast<const sockaddr*>(&address),
                       static_cast<socklen_t>(length)) != 0)
        return UniqueFd();
    return fd;
}

/// The first line of the protocol: this user asks to be known by the socket's credentials.
std::string greeting() {
    std::string hex;
    for (const char digit : std::to_string(geteuid())) hex += {'3', digit};
    return std::string(1, '\0') + "AUTH EXTERNAL " + hex + "\r\n";
}

bool isReadable(int fd, Patience& patience) {
    while (!patience.isOver()) {
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(patience.nextPart());
        const auto began = Clock::now();
        pollfd waiting{fd, POLLIN, 0};
        if (poll(&waiting, 1, static_cast<int>(wait.count())) == 1) return true;
        patience.spend(std::chrono::ceil<Patience::Duration>(Clock::now() - began));
    }
    return false;
}

bool consents(const UniqueFd& fd, Patience patience) {
    const auto hello = greeting();
    if (send(fd.get(), hello.data(), hello.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(hello.size()))
        return false;
    std::string answer;
    while (answer.size() < 3 && isReadable(fd.get(), patience)) {
        char block[256];
        const auto got = read(fd.get(), block, sizeof block);
        if (got <= 0) return false;
        answer.append(block, static_cast<std::size_t>(got));
    }
    return answer.starts_with("OK ");
}

}  // namespace

bool busAnswers(const std::string& address, std::chrono::milliseconds limit) {
    if (address.empty()) return false;
    bool allAsked = true;
    for (const auto entry : split(address, ';')) {
        if (const auto name = socketNameOf(entry)) {
            const auto fd = connectTo(*name);
            if (fd) return consents(fd, Patience(limit));
        } else if (!entry.empty()) {
            allAsked = false;
        }
    }
    return !allAsked;
}

std::string sessionBusAddress() {
    const char* named = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    if (named != nullptr && *named != '\0') return named;
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (runtime == nullptr || *runtime != '/') return "";
    const std::string socket = std::string(runtime) + "/bus";
    return access(socket.c_str(), F_OK) == 0 ? "unix:path=" + socket : "";
}

}  // namespace sonra
