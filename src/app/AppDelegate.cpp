#include "app/AppDelegate.h"

#include <unistd.h>

#include <chrono>

#include "frame/Log.h"
#include "frame/ServiceLock.h"
#include "frame/TemporaryDirectory.h"
#include "frame/UrlLaunch.h"
#include "linux/InotifyFileWatcher.h"
#include "linux/InotifyTreeWatcher.h"
#include "linux/PulseConnection.h"
#include "linux/PulseFilePlayerFactory.h"

namespace sonra {
namespace {

double wallClockMs() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

AppDelegate::AppDelegate(Mode mode, std::vector<std::string> urls, MainLoop& loop, Exit exit)
    : mode_(std::move(mode)), urls_(std::move(urls)), loop_(loop), exit_(std::move(exit)) {}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching() {
    if (const auto* service = std::get_if<ServiceMode>(&mode_))
        startService(service->socket);
    else if (const auto* server = std::get_if<CaptionsServeLegacyMode>(&mode_))
        startCaptionServer(server->socket);
    else
        play(std::get<PlayerArgs>(mode_));
}

AppCoordinator::Platform AppDelegate::platform() {
    const auto exitAtOnce = [this](int status) {
        shutDown();
        _exit(status);
    };
    return {
        loop_,
        *players_,
        *files_,
        pool_,
        desktop_->defaults(),
        desktop_->screens(),
        desktop_->statusItem(),
        desktop_->panelFactory(),
        {*tree_, desktop_->desktopSearch(), desktop_->searchPanelFactory(), desktop_->hotkeys()},
        &desktop_->nowPlaying(),
        &desktop_->remoteCommands(),
        exit_,
        exitAtOnce,
        wallClockMs};
}

void AppDelegate::bringUp() {
    desktop_ = std::make_unique<Desktop>(loop_);
    const auto sound = std::make_shared<PulseConnection>();
    sound->connectAhead();
    players_ = std::make_unique<PulseFilePlayerFactory>(loop_, sound);
}

void AppDelegate::startService(const std::string& socketPath) {
    // Who was started with addresses has it already.
    if (!holdsServiceLock() && !acquireServiceLock()) return exit_(0);
    bringUp();
    desktop_->setWishes(wishes());
    files_ = std::make_unique<InotifyFileWatcher>(loop_);
    tree_ = std::make_unique<InotifyTreeWatcher>();
    coordinator_ = std::make_shared<AppCoordinator>(
        socketPath, platform(),
        AppCoordinator::Speech{std::make_shared<MacSynthesizer>(pool_),
                               std::make_shared<KokoroWorkerEngine>(),
                               KokoroProcessEngine::make(pool_)});
    if (!coordinator_->start()) exit_(1);
    // Among thousands of files of others it takes a while.
    pool_.post(sweepTemporaryDirectories);
    desktop_->publish();
    for (const auto& url : urls_) open(url);
}

void AppDelegate::open(const std::string& url) {
    if (coordinator_->openURL(withPlainScheme(url))) return;
    Log::shared()
        .child({{"class", "AppDelegate"}})
        .warn("address stands for nothing", {{"input", {{"url", url}}}});
}

/// They come once the coordinator has started, whoever asked for them before.
Desktop::Wishes AppDelegate::wishes() {
    return {[this](const std::string& url) { open(url); },
            [this](const std::string& query) { coordinator_->openSearchPanel(query); }};
}

std::unique_ptr<CaptionWindow> AppDelegate::makeCaptionWindow() {
    return std::make_unique<CaptionWindow>(loop_, desktop_->defaults(), desktop_->screens(),
                                           desktop_->panelFactory());
}

void AppDelegate::startCaptionServer(const std::string& socketPath) {
    desktop_ = std::make_unique<Desktop>(loop_);
    legacy_ = std::make_unique<LegacyCaptionsServer>(
        loop_, socketPath, [this] { return makeCaptionWindow(); }, exit_);
    if (!legacy_->start()) exit_(1);
}

void AppDelegate::play(const PlayerArgs& args) {
    bringUp();
    player_ = std::make_unique<LegacyPlayer>(
        loop_, *players_, &desktop_->nowPlaying(), [this] { return makeCaptionWindow(); }, exit_);
    player_->run(args);
}

void AppDelegate::shutDown() {
    if (coordinator_) coordinator_->shutDown();
    if (legacy_) legacy_->unlinkSocket();
}

}  // namespace sonra
