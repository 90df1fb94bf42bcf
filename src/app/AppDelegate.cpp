#include "app/AppDelegate.h"

#include <chrono>
#include <cstdio>

#include "frame/ServiceLock.h"
#include "frame/TemporaryDirectory.h"
#include "linux/InotifyFileWatcher.h"
#include "linux/PulseConnection.h"
#include "linux/PulseFilePlayerFactory.h"

namespace sonra {
namespace {

double wallClockMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

AppDelegate::AppDelegate(Mode mode, MainLoop& loop, Exit exit)
    : mode_(std::move(mode)), loop_(loop), exit_(std::move(exit)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    if (const auto* service = std::get_if<ServiceMode>(&mode_)) {
        startService(service->socket);
        return;
    }
    const bool captions = std::holds_alternative<CaptionsServeLegacyMode>(mode_);
    std::fprintf(stderr, "sonra: %s\n",
                 captions ? "this version has no caption server yet"
                          : "this version can't play a file by itself yet");
    exit_(1);
}

AppCoordinator::Platform AppDelegate::platform() {
    return {loop_, *players_, *files_, pool_, nullptr, exit_, wallClockMs};
}

void AppDelegate::startService(const std::string& socketPath) {
    if (!acquireServiceLock()) return exit_(0);
    sweepTemporaryDirectories();
    const auto sound = std::make_shared<PulseConnection>();
    sound->connectAhead();
    players_ = std::make_unique<PulseFilePlayerFactory>(loop_, sound);
    files_ = std::make_unique<InotifyFileWatcher>(loop_);
    coordinator_ = std::make_shared<AppCoordinator>(
        socketPath, platform(),
        AppCoordinator::Speech{std::make_shared<MacSynthesizer>(pool_),
                               std::make_shared<KokoroWorkerEngine>()});
    if (!coordinator_->start()) exit_(1);
}

void AppDelegate::shutDown() {
    if (coordinator_) coordinator_->shutDown();
}

}  // namespace sonra
