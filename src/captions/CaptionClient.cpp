#include "captions/CaptionClient.h"

#include <sys/socket.h>

#include <cerrno>

#include "frame/ThreadAffinity.h"
#include "frame/UnixSocket.h"

namespace sonra {

std::unique_ptr<CaptionClient> CaptionClient::connect(const std::string& socketPath) {
    SONRA_ASSERT_MAIN_THREAD();
    UniqueFd fd(connectUnixSocket(socketPath));
    if (!fd) return nullptr;
    return std::unique_ptr<CaptionClient>(new CaptionClient(std::move(fd)));
}

void CaptionClient::send(const Json& command) {
    SONRA_ASSERT_MAIN_THREAD();
    flush();
    if (!fd_ || !unsent_.empty()) return;
    unsent_ = json::dump(command) + "\n";
    flush();
}

void CaptionClient::flush() {
    while (fd_ && !unsent_.empty()) {
        const auto sent =
            ::send(fd_.get(), unsent_.data(), unsent_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) fd_.reset();
            return;
        }
        unsent_.erase(0, static_cast<std::size_t>(sent));
    }
}

}  // namespace sonra
