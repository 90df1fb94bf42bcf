#include "captions/LegacyCaptionsServer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <iostream>
#include <utility>

#include "captions/CaptionWindow.h"
#include "frame/ChildProcess.h"
#include "frame/Environment.h"
#include "frame/Home.h"
#include "frame/ThreadAffinity.h"
#include "frame/UnixSocket.h"

namespace sonra {
namespace {

constexpr std::size_t readSize = 4096;
constexpr std::chrono::seconds acceptPause{1};

bool isPassing(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == ECONNABORTED;
}

/// Tells the controlling tool that the user closed the captions, if one asked to be told.
void reportCaptionsOff() {
    const auto command = environmentValue("TTS_CTL_CMD");
    if (command.empty()) return;
    ChildProcess::spawn({.executable = "/bin/sh",
                         .arguments = {"-c", command + " captions off"},
                         .environment = ownEnvironment()});
}

}  // namespace

LegacyCaptionsServer::LegacyCaptionsServer(MainLoop& loop, std::string socketPath,
                                           WindowFactory makeWindow, Exit exit)
    : loop_(loop),
      socketPath_(std::move(socketPath)),
      makeWindow_(std::move(makeWindow)),
      exit_(std::move(exit)),
      log_(Log::shared().child({{"class", "LegacyCaptionsServer"}})) {}

LegacyCaptionsServer::~LegacyCaptionsServer() {
    unlinkSocket();
}

bool LegacyCaptionsServer::start() {
    SONRA_ASSERT_MAIN_THREAD();
    serverFd_.reset(bindUnixSocket(socketPath_));
    // Accepting must never wait: a client may hang up between the event and the call.
    if (!serverFd_ || fcntl(serverFd_.get(), F_SETFL, O_NONBLOCK) != 0) {
        std::cerr << "legacy captions: bind failed" << std::endl;
        return false;
    }
    bound_ = identify(socketPath_);
    window_ = makeWindow_();
    window_->onClose = [this] { closedByUser(); };
    armAccept();
    return true;
}

std::optional<LegacyCaptionsServer::FileIdentity> LegacyCaptionsServer::identify(
    const std::string& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0) return std::nullopt;
    return FileIdentity{status.st_dev, status.st_ino};
}

void LegacyCaptionsServer::unlinkSocket() const {
    // A later server may have put its own socket at the path.
    if (bound_ && identify(socketPath_) == bound_) unlink(socketPath_.c_str());
}

void LegacyCaptionsServer::armAccept() {
    acceptSource_ =
        loop_.watch(serverFd_.get(), MainLoop::Interest::readable, [this] { acceptWaiting(); });
}

void LegacyCaptionsServer::acceptWaiting() {
    UniqueFd fd(accept4(serverFd_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (fd) return attachClient(std::move(fd));
    if (isPassing(errno)) return;
    // Out of descriptors or memory, the connection stays in line and the event would come back at
    // once, again and again.
    log_.warn("captions accept failed, pausing", {{"input", {{"errno", errno}}}});
    acceptSource_.cancel();
    acceptPause_ = loop_.after(acceptPause, [this] { armAccept(); });
}

void LegacyCaptionsServer::attachClient(UniqueFd fd) {
    if (clients_.size() >= maxClients) {
        log_.warn("captions too many clients, dropping",
                  {{"input", {{"clients", clients_.size()}}}});
        return;
    }
    const int number = fd.get();
    Client& client = clients_[number];
    client.fd = std::move(fd);
    client.source =
        loop_.watch(number, MainLoop::Interest::readable, [this, number] { readFrom(number); });
}

void LegacyCaptionsServer::readFrom(int fd) {
    SONRA_ASSERT_MAIN_THREAD();
    std::array<char, readSize> bytes;  // NOLINT: filled by read
    const auto count = read(fd, bytes.data(), bytes.size());
    if (count < 0 && isPassing(errno)) return;
    if (count <= 0) {
        clients_.erase(fd);
        return;
    }
    take(fd, {bytes.data(), static_cast<std::size_t>(count)});
}

void LegacyCaptionsServer::take(int fd, std::string_view bytes) {
    std::string& buffer = clients_.at(fd).buffer;
    for (;;) {
        const auto end = bytes.find('\n');
        buffer.append(bytes.substr(0, end));
        if (buffer.size() > maxLineBytes) break;
        if (end == std::string_view::npos) return;
        handleLine(std::exchange(buffer, {}));
        bytes.remove_prefix(end + 1);
    }
    log_.warn("captions line too long, dropping client", {{"input", {{"bytes", buffer.size()}}}});
    clients_.erase(fd);
}

void LegacyCaptionsServer::handleLine(std::string_view line) {
    const auto message = json::parseObject(line);
    if (!message || ending_) return;
    const auto cmd = json::stringAt(*message, "cmd").value_or("set");
    if (cmd == "highlight")
        window_->updateProgress(json::doubleAt(*message, "progress").value_or(0));
    else if (cmd == "show")
        window_->show();
    else if (cmd == "hide")
        window_->hide();
    else if (cmd == "clear")
        setText("");
    else if (cmd == "quit")
        end();
    else
        setText(json::stringAt(*message, "text").value_or(""));
}

void LegacyCaptionsServer::setText(const std::string& text) {
    window_->setText(text);
    // Nobody tells what the player does, but words come from one that speaks.
    const auto phase =
        text.empty() ? NarrationStatus::Phase::idle : NarrationStatus::Phase::playing;
    window_->setStatus({phase});
}

void LegacyCaptionsServer::closedByUser() {
    SONRA_ASSERT_MAIN_THREAD();
    if (ending_) return;
    reportCaptionsOff();
    end();
}

void LegacyCaptionsServer::end() {
    ending_ = true;
    loop_.post([this, life = std::weak_ptr(life_)] {
        if (life.expired()) return;
        unlinkSocket();
        exit_(0);
    });
}

}  // namespace sonra
