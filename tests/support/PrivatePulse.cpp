#include "support/PrivatePulse.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace sonra::test {
namespace {

using namespace std::chrono_literals;

// Without norewinds a null sink starts late after a pause and captures lose milliseconds.
std::string script(const std::string& socket) {
    return "load-module module-native-protocol-unix socket=" + socket +
           " auth-anonymous=1\n"
           "load-module module-null-sink sink_name=speaker norewinds=1 rate=48000 channels=2\n"
           "load-module module-null-sink sink_name=micfeed norewinds=1 rate=48000 channels=1\n"
           "load-module module-remap-source source_name=mic master=micfeed.monitor\n"
           "set-default-sink speaker\n"
           "set-default-source mic\n";
}

}  // namespace

PrivatePulse::PrivatePulse() : server_("PULSE_SERVER", "unix:" + socket()) {
    for (const auto* name : {"run", "home"}) mkdir((dir_ / name).c_str(), 0700);
    writeFile(dir_ / "test.pa", script(socket()));
    start();
}

void PrivatePulse::start() {
    unlink(socket().c_str());
    const std::vector<std::string> command{"pulseaudio",
                                           "-n",
                                           "-F",
                                           dir_ / "test.pa",
                                           "--daemonize=no",
                                           "--exit-idle-time=-1",
                                           "--use-pid-file=no",
                                           "--disable-shm=yes",
                                           "--realtime=no",
                                           "--high-priority=no"};
    const std::vector<std::string> environment{"XDG_RUNTIME_DIR=" + dir_ / "run",
                                               "HOME=" + dir_ / "home"};
    daemon_ = std::make_unique<TestProcess>(command, environment);
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (pactl({"info"}).find("Default Source: mic") == std::string::npos) {
        if (std::chrono::steady_clock::now() > deadline) std::abort();
        std::this_thread::sleep_for(5ms);
    }
}

void PrivatePulse::freeze() const {
    daemon_->signal(SIGSTOP);
}

void PrivatePulse::thaw() const {
    daemon_->signal(SIGCONT);
}

std::string PrivatePulse::pactl(std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), "pactl");
    return TestProcess(std::move(arguments)).readAll();
}

std::size_t PrivatePulse::playbackStreams() const {
    const auto list = pactl({"list", "short", "sink-inputs"});
    return static_cast<std::size_t>(std::count(list.begin(), list.end(), '\n'));
}

}  // namespace sonra::test
