#pragma once

#include <functional>

#include "frame/UniqueFd.h"
#include "platform/MainLoop.h"

namespace sonra {

/// Delivers SIGTERM, SIGINT and, unless it was ignored from the start, SIGHUP to the main loop,
/// between its pieces of work, never in the middle of one. Main thread only.
class SignalWatch {
  public:
    using Callback = std::function<void(int signal)>;

    /// Keeps these signals, and SIGPIPE, from ending the process. Called before any other thread
    /// is made, since threads inherit it.
    static void block();

    SignalWatch(MainLoop& loop, Callback onSignal);

  private:
    void read();

    UniqueFd fd_;
    Callback onSignal_;
    LoopHandle readable_;
};

}  // namespace sonra
