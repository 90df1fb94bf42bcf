#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/Desktop.h"
#include "captions/LegacyCaptionsServer.h"
#include "captions/LegacyPlayer.h"
#include "control/AppCoordinator.h"
#include "frame/ProcessMode.h"

namespace sonra {

/// Brings up what the process's mode asks for, once the event loop can run.
///
/// Main thread only; owned by main for the life of the process. The loop must outlive it. What
/// can't be brought up ends the process through `exit`, with the reason on standard error.
class AppDelegate {
  public:
    using Exit = std::function<void(int status)>;

    /// A service opens `urls` once it has started.
    AppDelegate(Mode mode, std::vector<std::string> urls, MainLoop& loop, Exit exit);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    void applicationDidFinishLaunching();
    /// What must happen before the process ends, whichever way it ends.
    void shutDown();

  private:
    void startService(const std::string& socketPath);
    /// What an address stands for, whoever asks for it; one that stands for nothing is logged.
    void open(const std::string& url);
    void startCaptionServer(const std::string& socketPath);
    void play(const PlayerArgs& args);
    /// Desktop and sound.
    void bringUp();
    std::unique_ptr<CaptionWindow> makeCaptionWindow();
    AppCoordinator::Platform platform();
    Desktop::Wishes wishes();

    Mode mode_;
    const std::vector<std::string> urls_;
    MainLoop& loop_;
    Exit exit_;
    WorkerPool pool_;
    std::unique_ptr<FileWatcher> files_;
    std::unique_ptr<TreeWatcher> tree_;
    std::unique_ptr<FilePlayerFactory> players_;
    std::unique_ptr<Desktop> desktop_;
    std::shared_ptr<AppCoordinator> coordinator_;
    std::unique_ptr<LegacyCaptionsServer> legacy_;
    std::unique_ptr<LegacyPlayer> player_;
};

}  // namespace sonra
