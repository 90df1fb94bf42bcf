#include "support/PrivatePipeWire.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

namespace sonra::test {
namespace {

using namespace std::chrono_literals;

void waitUntil(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) std::abort();
        std::this_thread::sleep_for(10ms);
    }
}

}  // namespace

bool PrivatePipeWire::installed() {
    return access("/usr/bin/pipewire-pulse", X_OK) == 0 &&
           access("/usr/bin/wireplumber", X_OK) == 0;
}

PrivatePipeWire::PrivatePipeWire() : server_("PULSE_SERVER", "unix:" + socket()) {
    if (!installed()) return;
    for (const auto* name : {"run", "home"}) mkdir((dir_ / name).c_str(), 0700);
    // Without a session bus the session manager ends at once.
    run({"dbus-daemon", "--session", "--nofork", "--address=unix:path=" + dir_ / "run/bus"},
        dir_ / "run/bus");
    run({"pipewire"}, dir_ / "run/pipewire-0");
    run({"wireplumber"}, dir_ / "run/pipewire-0");
    run({"pipewire-pulse"}, socket());
    waitUntil([&] {
        pactl({"load-module", "module-null-sink", "sink_name=speaker", "rate=48000", "channels=2"});
        return pactl({"list", "short", "sinks"}).find("speaker") != std::string::npos;
    });
    waitUntil([&] {
        pactl({"set-default-sink", "speaker"});
        return pactl({"info"}).find("Default Sink: speaker") != std::string::npos;
    });
}

void PrivatePipeWire::run(std::vector<std::string> command, const std::string& readyPath) {
    const std::vector<std::string> environment{
        "XDG_RUNTIME_DIR=" + dir_ / "run", "HOME=" + dir_ / "home",
        "DBUS_SESSION_BUS_ADDRESS=unix:path=" + dir_ / "run/bus"};
    daemons_.push_back(std::make_unique<TestProcess>(std::move(command), environment));
    waitUntil([&] { return access(readyPath.c_str(), F_OK) == 0; });
}

std::string PrivatePipeWire::pactl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "pactl");
    return TestProcess(std::move(arguments)).readAll();
}

}  // namespace sonra::test
