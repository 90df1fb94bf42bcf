#pragma once

#include <memory>
#include <string>

#include "control/AppCoordinator.h"
#include "frame/ProcessMode.h"

namespace sonra {

class InotifyFileWatcher;
class PulseConnection;

/// Brings up what the process's mode asks for, once the event loop can run.
///
/// Main thread only; owned by main for the life of the process. Ways to end it come in as a
/// callback.
class AppDelegate {
  public:
    using Exit = std::function<void(int status)>;

    AppDelegate(Mode mode, MainLoop& loop, Exit exit);
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    /// Takes the service's lock and starts the coordinator; ends the process where that isn't
    /// possible.
    void applicationDidFinishLaunching();
    /// What must happen before the process ends, whichever way it ends.
    void shutDown();

  private:
    void startService(const std::string& socketPath);

    Mode mode_;
    MainLoop& loop_;
    Exit exit_;
    WorkerPool pool_;
    std::unique_ptr<FileWatcher> files_;
    std::unique_ptr<FilePlayerFactory> players_;
    std::shared_ptr<AppCoordinator> coordinator_;
};

}  // namespace sonra
