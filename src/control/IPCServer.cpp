#include "control/IPCServer.h"

#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "frame/UnixSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <utility>

namespace sonra {
namespace {

constexpr std::size_t readSize = 8192;
constexpr std::size_t sampleBytes = 80;
constexpr int acceptsPerEvent = 32;
constexpr std::chrono::seconds acceptPause{1};
/// An emptied buffer that is larger gives its memory back.
constexpr std::size_t keptCapacity = 4 * readSize;

std::string sampleOf(std::string_view line) {
    const auto sample = line.substr(0, sampleBytes);
    return text::isUtf8(sample) ? std::string(sample) : "<non-utf8>";
}

bool isPassing(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == ECONNABORTED;
}

void hoist(Json& message, const Json* entries) {
    if (entries == nullptr || !entries->is_object()) return;
    for (const auto& [key, value] : entries->items()) message.emplace(key, value);
}

}  // namespace

std::optional<uid_t> socketPeerUid(int fd) {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return std::nullopt;
    return peer.uid;
}

IPCServer::IPCServer(MainLoop& loop, std::string socketPath, PeerUid peerUid)
    : loop_(loop),
      socketPath_(std::move(socketPath)),
      peerUid_(std::move(peerUid)),
      log_(Log::shared().child({{"class", "IPCServer"}})) {}

IPCServer::~IPCServer() {
    unlinkSocket();
}

bool IPCServer::start() {
    SONRA_ASSERT_MAIN_THREAD();
    const Json input{{"input", {{"socketPath", socketPath_}}}};
    log_.info("ipc server starting", input);
    serverFd_.reset(bindUnixSocket(socketPath_));
    // Accepting must never wait: a client may hang up between the event and the call.
    if (!serverFd_ || fcntl(serverFd_.get(), F_SETFL, O_NONBLOCK) != 0) {
        log_.error("ipc bind/listen failed", input);
        std::cerr << "ipc: bind/listen failed for " << socketPath_ << std::endl;
        return false;
    }
    bound_ = identify(socketPath_);
    log_.info("ipc server listening");
    armAccept();
    return true;
}

std::optional<IPCServer::FileIdentity> IPCServer::identify(const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return std::nullopt;
    return FileIdentity{status.st_dev, status.st_ino};
}

void IPCServer::unlinkSocket() const {
    // A later service may have put its own socket at the path.
    if (bound_ && identify(socketPath_) == bound_) unlink(socketPath_.c_str());
}

void IPCServer::armAccept() {
    acceptSource_ =
        loop_.watch(serverFd_.get(), MainLoop::Interest::readable, [this] { acceptWaiting(); });
}

void IPCServer::acceptWaiting() {
    for (int i = 0; i < acceptsPerEvent; ++i) {
        UniqueFd fd(accept4(serverFd_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (!fd) {
            if (!isPassing(errno)) pauseAccepting(errno);
            return;
        }
        admit(std::move(fd));
    }
}

void IPCServer::pauseAccepting(int error) {
    // Out of descriptors or memory, the connection stays in line and the event would come back at
    // once, again and again.
    log_.warn("ipc accept failed, pausing", {{"input", {{"errno", error}}}});
    acceptSource_.cancel();
    acceptPause_ = loop_.after(acceptPause, [this] { armAccept(); });
}

void IPCServer::admit(UniqueFd fd) {
    const auto uid = peerUid_(fd.get());
    const int error = errno;
    if (!uid) {
        log_.warn("ipc getpeereid failed, dropping",
                  {{"input", {{"fd", fd.get()}, {"errno", error}}}});
    } else if (*uid != getuid()) {
        log_.warn("ipc rejecting foreign uid", {{"input", {{"fd", fd.get()}, {"uid", *uid}}}});
    } else if (clients_.size() >= IPC_MAX_CLIENTS) {
        log_.warn("ipc too many clients, dropping", {{"input", {{"clients", clients_.size()}}}});
    } else {
        attachClient(std::move(fd));
    }
}

void IPCServer::attachClient(UniqueFd fd) {
    SONRA_ASSERT_MAIN_THREAD();
    const int number = fd.get();
    auto client = std::make_shared<Client>();
    client->fd = std::move(fd);
    client->watch =
        loop_.watch(number, MainLoop::Interest::readable, [this, number] { readFrom(number); });
    clients_[number] = std::move(client);
}

std::size_t IPCServer::bufferedBytes(int fd) const {
    const auto client = clients_.find(fd);
    return client == clients_.end() ? 0 : client->second->buffer.size();
}

void IPCServer::readFrom(int fd) {
    SONRA_ASSERT_MAIN_THREAD();
    std::array<char, readSize> bytes;  // NOLINT: filled by read
    const ssize_t count = read(fd, bytes.data(), bytes.size());
    if (count < 0 && isPassing(errno)) return;
    if (count <= 0) {
        detach(fd);
        return;
    }
    const std::string_view got(bytes.data(), static_cast<std::size_t>(count));
    if (appendAndCheckCap(fd, got) && got.find('\n') != std::string_view::npos) handleLinesOf(fd);
}

bool IPCServer::appendAndCheckCap(int fd, std::string_view bytes) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto client = clients_.find(fd);
    if (client == clients_.end()) return false;
    std::string& buffer = client->second->buffer;
    const std::size_t size = buffer.size() + bytes.size();
    if (size <= IPC_MAX_CLIENT_BYTES) {
        buffer.append(bytes);
        return true;
    }
    log_.warn("ipc client over byte cap, detaching",
              {{"input", {{"fd", fd}, {"bytes", size}, {"cap", IPC_MAX_CLIENT_BYTES}}}});
    detach(fd);
    return false;
}

void IPCServer::handleLinesOf(int fd) {
    // A handler may detach this client, append to it, or destroy the server: so the lines are held
    // here, and the client's descriptor stays open, lest its number be given to a new client.
    const std::shared_ptr<Client> client = clients_.at(fd);
    const std::weak_ptr<const bool> life = life_;
    std::string lines = std::exchange(client->buffer, {});
    std::size_t begin = 0;
    for (auto end = lines.find('\n'); end != std::string::npos; end = lines.find('\n', begin)) {
        handleLine(std::string_view(lines).substr(begin, end - begin), fd);
        if (life.expired()) return;
        begin = end + 1;
    }
    lines.erase(0, begin);
    lines.append(client->buffer);
    if (lines.capacity() > keptCapacity && lines.size() < readSize) lines.shrink_to_fit();
    client->buffer = std::move(lines);
}

void IPCServer::handleLine(std::string_view line, int fd) {
    SONRA_ASSERT_MAIN_THREAD();
    auto message = json::parseObject(line);
    if (!message) {
        log_.warn("ipc malformed json",
                  {{"input", {{"fd", fd}, {"bytes", line.size()}, {"sample", sampleOf(line)}}}});
        return;
    }
    const auto proto = json::intAt(*message, "proto");
    if (!proto || !IPC_PROTO_ACCEPTED.contains(*proto)) {
        logMismatch(*message, fd);
        return;
    }
    const auto requestId = json::stringAt(*message, "requestId");
    const std::string cmd = json::stringAt(*message, "cmd").value_or("unknown");
    const Json normalised = normalize(std::move(*message));
    const Log log = log_.child({{"method", cmd},
                                {"requestId", requestId ? *requestId : Log::newRequestId()},
                                {"input", {{"cmd", cmd}, {"proto", *proto}}}});
    log.info("ipc message");
    // A copy, for the handler may destroy the server, and itself with it.
    if (const auto handler = onCommand) handler(normalised);
    log.info("ipc dispatched");
}

void IPCServer::logMismatch(const Json& message, int fd) const {
    const auto proto = json::intAt(message, "proto");
    log_.warn("ipc proto mismatch, ignoring",
              {{"input",
                {{"fd", fd},
                 {"cmd", json::stringAt(message, "cmd").value_or("<absent>")},
                 {"got", proto ? Json(*proto) : Json("absent")},
                 {"want", IPC_PROTO_ACCEPTED}}}});
}

Json IPCServer::normalize(Json message) {
    // Both are looked up first: an "args" that holds a "target" doesn't make it one.
    const Json* args = json::find(message, "args");
    const Json* target = json::find(message, "target");
    hoist(message, args);
    hoist(message, target);
    return message;
}

}  // namespace sonra
