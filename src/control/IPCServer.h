#pragma once

#include "frame/Json.h"
#include "frame/Log.h"
#include "frame/UniqueFd.h"
#include "platform/MainLoop.h"

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>

namespace sonra {

/// The version of the protocol that this side calls its own, and those that it processes.
inline constexpr int IPC_PROTO_VERSION = 1;
inline const std::set<std::int64_t> IPC_PROTO_ACCEPTED{1, 2};
/// Largest unterminated line that is held for a client.
inline constexpr std::size_t IPC_MAX_CLIENT_BYTES = 1'048'576;
/// More connections than that are a client that leaks them, and would take the program's
/// descriptors.
inline constexpr std::size_t IPC_MAX_CLIENTS = 256;

/// The effective user at the other end of a connected Unix socket; absent, with errno set, if the
/// system doesn't tell.
std::optional<uid_t> socketPeerUid(int fd);

/// The service's socket: takes commands, one JSON object a line, and answers nothing.
///
/// Main thread only, but for unlinkSocket. Clients of other users are turned away; a line that
/// can't be read is logged and dropped, and its client stays; a client that never ends its line is
/// dropped. A handler may do anything, also destroy the server.
class IPCServer {
  public:
    using PeerUid = std::function<std::optional<uid_t>(int fd)>;

    IPCServer(MainLoop& loop, std::string socketPath, PeerUid peerUid = socketPeerUid);
    ~IPCServer();
    IPCServer(const IPCServer&) = delete;
    IPCServer& operator=(const IPCServer&) = delete;

    /// The command sink: called with each normalised message, one after the other.
    std::function<void(const Json& message)> onCommand;

    /// Binds and listens. The caller holds the service's lock. False if the socket can't be had,
    /// which has been logged and said on standard error; the process is then to end with status 1.
    [[nodiscard]] bool start();
    /// Removes the socket's file if it still is the one that `start` made. Any thread.
    void unlinkSocket() const;

    /// Takes over a connected descriptor that has passed the check of its user.
    void attachClient(UniqueFd fd);
    [[nodiscard]] bool isAttached(int fd) const { return clients_.contains(fd); }
    /// Bytes of the client's unfinished line.
    [[nodiscard]] std::size_t bufferedBytes(int fd) const;
    /// Adds to the client's unfinished line; false if the client is gone or was dropped for its
    /// size.
    bool appendAndCheckCap(int fd, std::string_view bytes);
    /// Handles one whole line, without its newline; `fd` is for the log.
    void handleLine(std::string_view line, int fd);
    /// Lifts the entries of `args`, then of `target`, to the top level where there is no such key
    /// yet.
    static Json normalize(Json message);

  private:
    struct Client {
        UniqueFd fd;
        std::string buffer;
        LoopHandle watch;  // last, so that the watch ends before its descriptor closes
    };
    struct FileIdentity {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const FileIdentity&) const = default;
    };
    static std::optional<FileIdentity> identify(const std::string& path);

    void acceptWaiting();
    void pauseAccepting(int error);
    void armAccept();
    void admit(UniqueFd fd);
    void readFrom(int fd);
    void handleLinesOf(int fd);
    void detach(int fd) { clients_.erase(fd); }
    void logMismatch(const Json& message, int fd) const;

    MainLoop& loop_;
    const std::string socketPath_;
    const PeerUid peerUid_;
    const Log log_;
    UniqueFd serverFd_;
    std::optional<FileIdentity> bound_;
    std::unordered_map<int, std::shared_ptr<Client>> clients_;
    LoopHandle acceptSource_;
    LoopHandle acceptPause_;
    /// Expires with the server: tells work under way that a handler destroyed it.
    std::shared_ptr<const bool> life_ = std::make_shared<bool>(true);
};

}  // namespace sonra
