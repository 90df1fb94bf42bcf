#include "frame/UnixSocket.h"

#include "frame/UniqueFd.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <cstring>
#include <iostream>

namespace sonra {
namespace {

constexpr int listenBacklog = 8;
constexpr timeval sendLimit{1, 0};

static_assert(sunAddressLength == offsetof(sockaddr_un, sun_path) + maxSunPathBytes);
static_assert(sunAddressLength <= sizeof(sockaddr_un));

UniqueFd makeSocket() {
    return UniqueFd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool makeAddress(sockaddr_un& address, std::string_view path) {
    address = {};
    address.sun_family = AF_UNIX;
    return packSunPath(address, path);
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

bool packSunPath(sockaddr_un& address, std::string_view path) {
    const std::size_t bytes = path.size() + 1;
    if (bytes > maxSunPathBytes) {
        std::cerr << "tts: socket path too long (" << bytes << " bytes, max " << maxSunPathBytes
                  << "): " << path << std::endl;
        return false;
    }
    if (path.empty()) return false;
    std::memcpy(address.sun_path, path.data(), path.size());
    address.sun_path[path.size()] = '\0';
    return true;
}

int bindUnixSocket(const std::string& path) {
    unlink(path.c_str());
    UniqueFd fd = makeSocket();
    sockaddr_un address;
    // Nobody can connect before `listen`, so the mode is right by the time that it matters.
    if (!fd || !makeAddress(address, path) ||
        bind(fd.get(), generic(address), sunAddressLength) != 0 || chmod(path.c_str(), 0600) != 0 ||
        listen(fd.get(), listenBacklog) != 0)
        return -1;
    return fd.release();
}

int connectUnixSocket(const std::string& path) {
    UniqueFd fd = makeSocket();
    sockaddr_un address;
    // A listener that has stopped accepting would otherwise hold `connect` for ever.
    if (!fd || setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &sendLimit, sizeof sendLimit) != 0 ||
        !makeAddress(address, path) || connect(fd.get(), generic(address), sunAddressLength) != 0)
        return -1;
    return fd.release();
}

}  // namespace sonra
