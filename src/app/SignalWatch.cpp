#include "app/SignalWatch.h"

#include <signal.h>
#include <sys/signalfd.h>

namespace sonra {
namespace {

/// Whoever starts a program with the hang-up ignored, as nohup does, wants it to outlive the
/// terminal.
bool isIgnored(int number) {
    struct sigaction action {};
    return sigaction(number, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

sigset_t endingSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    if (!isIgnored(SIGHUP)) sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

void SignalWatch::block() {
    const auto set = endingSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

SignalWatch::SignalWatch(MainLoop& loop, Callback onSignal) : onSignal_(std::move(onSignal)) {
    const auto set = endingSignals();
    fd_.reset(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
    readable_ = loop.watch(fd_.get(), MainLoop::Interest::readable, [this] { read(); });
}

void SignalWatch::read() {
    signalfd_siginfo info{};
    if (::read(fd_.get(), &info, sizeof info) == static_cast<ssize_t>(sizeof info))
        onSignal_(static_cast<int>(info.ssi_signo));
}

}  // namespace sonra
