#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "frame/Json.h"
#include "frame/Log.h"
#include "frame/UniqueFd.h"
#include "platform/MainLoop.h"

namespace sonra {

class CaptionWindow;

/// A caption window that programs steer through a socket, with one JSON object a line, so that
/// several players share it. It answers nothing.
///
/// Main thread only. Owns the window and its clients. A line that can't be read is dropped, and its
/// client stays; a client that never ends its line is dropped. "quit" and the panel's close button
/// remove the socket and end the process through `exit`, posted.
class LegacyCaptionsServer {
  public:
    using WindowFactory = std::function<std::unique_ptr<CaptionWindow>()>;
    using Exit = std::function<void(int status)>;

    /// More connections than that are a client that leaks them.
    static constexpr std::size_t maxClients = 64;
    /// Longest line, without its newline.
    static constexpr std::size_t maxLineBytes = std::size_t{4} << 20U;

    LegacyCaptionsServer(MainLoop& loop, std::string socketPath, WindowFactory makeWindow,
                         Exit exit);
    ~LegacyCaptionsServer();
    LegacyCaptionsServer(const LegacyCaptionsServer&) = delete;
    LegacyCaptionsServer& operator=(const LegacyCaptionsServer&) = delete;

    /// Binds, makes the window and listens. False if the socket can't be had, which has been said
    /// on standard error; the process is then to end with status 1.
    [[nodiscard]] bool start();
    /// Removes the socket's file if it still is the one that `start` made.
    void unlinkSocket() const;

  private:
    struct Client {
        UniqueFd fd;
        std::string buffer;  ///< of the unfinished line
        LoopHandle source;   ///< last, so that the watch ends before its descriptor closes
    };
    struct FileIdentity {
        dev_t device = 0;
        ino_t inode = 0;
        bool operator==(const FileIdentity&) const = default;
    };
    static std::optional<FileIdentity> identify(const std::string& path);

    void armAccept();
    void acceptWaiting();
    void attachClient(UniqueFd fd);
    void readFrom(int fd);
    void take(int fd, std::string_view bytes);
    void handleLine(std::string_view line);
    void setText(const std::string& text);
    void closedByUser();
    void end();

    MainLoop& loop_;
    const std::string socketPath_;
    const WindowFactory makeWindow_;
    const Exit exit_;
    const Log log_;
    std::unique_ptr<CaptionWindow> window_;
    UniqueFd serverFd_;
    std::optional<FileIdentity> bound_;
    std::unordered_map<int, Client> clients_;
    LoopHandle acceptSource_;
    LoopHandle acceptPause_;
    bool ending_ = false;
    /// Expires with the server: tells posted work that it has gone.
    std::shared_ptr<const bool> life_ = std::make_shared<bool>(true);
};

}  // namespace sonra
