#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/MainLoop.h"

class QObject;

namespace sonra {

/// The program on the session bus under its own name, where launchers, other programs and the
/// desktop's search reach the one that runs (org.freedesktop.Application). A bus that knows the
/// name starts the program when nobody has it.
///
/// Main thread only; the loop must outlive it. Handlers are called by the loop, after whoever
/// called over the bus got the answer. Without a bus nothing happens. Nothing here wakes up
/// unasked.
class QtApplicationInterface {
  public:
    struct Handlers {
        /// The program was started by its launcher.
        std::function<void()> activate;
        /// Addresses of any scheme that the program was asked to open, as they were given: nothing
        /// has looked at them.
        std::function<void(const std::string& uri)> open;
        /// An action of the launcher's file.
        std::function<void(const std::string& action)> activateAction;
    };

    /// Needs the application object.
    QtApplicationInterface(MainLoop& loop, Handlers handlers);
    ~QtApplicationInterface();
    QtApplicationInterface(const QtApplicationInterface&) = delete;
    QtApplicationInterface& operator=(const QtApplicationInterface&) = delete;

    /// The object that the bus shows: adaptors that are made its children before `publish` are
    /// shown with it.
    [[nodiscard]] QObject& exported();
    /// Takes the name. Call once there is somebody behind the handlers: what others asked for while
    /// the bus was starting the program comes at once.
    void publish();

  private:
    struct Exported;
    const std::unique_ptr<Exported> exported_;
};

}  // namespace sonra
