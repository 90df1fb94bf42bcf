#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/TestProcess.h"

namespace sonra::test {

/// An X server of the test's own, without a window manager.
class PrivateXServer {
  public:
    PrivateXServer() { serve({}); }
    ~PrivateXServer() { release(); }
    PrivateXServer(const PrivateXServer&) = delete;
    PrivateXServer& operator=(const PrivateXServer&) = delete;

    [[nodiscard]] const std::string& display() const { return display_; }
    /// Ends it and starts another one in its place.
    void replace() {
        kill();
        release();
        serve({display_});
    }
    /// Its display stays away: no other server takes the number meanwhile.
    void kill() {
        server_->kill();
        reserve();
    }
    void signal(int number) const { server_->signal(number); }

    /// Runs a program to its end; its output.
    [[nodiscard]] std::string run(std::vector<std::string> command) const {
        return TestProcess(std::move(command), {"DISPLAY=" + display_}).readAll();
    }
    void xdotool(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{"xdotool"};
        command.insert(command.end(), arguments.begin(), arguments.end());
        static_cast<void>(run(command));
    }
    [[nodiscard]] std::unique_ptr<TestProcess> start(const char* program) const {
        return std::make_unique<TestProcess>(std::vector<std::string>{program},
                                             std::vector<std::string>{"DISPLAY=" + display_});
    }

  private:
    /// Binds the socket without listening on it: other servers find it taken, clients nobody.
    void reserve() {
        reserved_ = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const auto name = "/tmp/.X11-unix/X" + display_.substr(1);
        std::copy(name.begin(), name.end(), address.sun_path + 1);  // in the abstract namespace
        const auto length = offsetof(sockaddr_un, sun_path) + 1 + name.size();
        static_cast<void>(bind(reserved_, reinterpret_cast<const sockaddr*>(&address),
                               static_cast<socklen_t>(length)));
    }
    void release() {
        if (reserved_ >= 0) close(std::exchange(reserved_, -1));
    }
    void serve(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "Xvfb");
        arguments.insert(arguments.end(), {"-displayfd", "1", "-screen", "0", "640x480x24",
                                           "-noreset", "-nolisten", "tcp"});
        server_ = std::make_unique<TestProcess>(arguments);
        display_ = ":";
        for (char byte = 0; read(server_->output(), &byte, 1) == 1 && byte != '\n';)
            display_ += byte;
    }

    std::unique_ptr<TestProcess> server_;
    std::string display_;
    int reserved_ = -1;
};

}  // namespace sonra::test
