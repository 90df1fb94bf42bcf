#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "linux/X11Patience.h"
#include "support/TestProcess.h"

namespace sonra::test {

/// For tests that aren't about a server that lets one wait.
constexpr X11Patience patient{std::chrono::seconds(20), std::chrono::seconds(20)};

/// A display that nobody serves: those of the tests have lower numbers.
constexpr auto nobodysDisplay = ":59000";

/// An X server of the test's own, without a window manager.
///
/// Its number is the process's own and high: servers that look for a free one themselves, as those
/// of other tests do, begin at 0 and don't get there, also while it is away.
class PrivateXServer {
  public:
    PrivateXServer() {
        constexpr int first = 1000;
        constexpr int numbers = 50'000;
        const int own = first + getpid() % numbers;
        constexpr int attempts = 20;
        for (int number = own; !serve(number) && number < own + attempts; ++number)
            ;
    }
    ~PrivateXServer() {
        if (display_.empty()) return;
        kill();
        // A server that is killed leaves them behind.
        const auto number = display_.substr(1);
        std::remove(("/tmp/.X" + number + "-lock").c_str());
        std::remove(("/tmp/.X11-unix/X" + number).c_str());
    }
    PrivateXServer(const PrivateXServer&) = delete;
    PrivateXServer& operator=(const PrivateXServer&) = delete;

    [[nodiscard]] const std::string& display() const { return display_; }
    /// Ends it and starts another one in its place.
    void replace() {
        kill();
        serve(std::stoi(display_.substr(1)));
    }
    void kill() { server_->kill(); }
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
    /// Waits until it serves; false if the number is another's.
    bool serve(int number) {
        const auto display = ":" + std::to_string(number);
        server_ = std::make_unique<TestProcess>(
            std::vector<std::string>{"Xvfb", display, "-displayfd", "1", "-screen", "0",
                                     "640x480x24", "-noreset", "-nolisten", "tcp"});
        char byte = 0;
        while (byte != '\n')
            if (read(server_->output(), &byte, 1) != 1) return false;
        display_ = display;
        return true;
    }

    std::unique_ptr<TestProcess> server_;
    std::string display_;
};

}  // namespace sonra::test
