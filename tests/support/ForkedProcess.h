#pragma once

#include <sys/types.h>

#include <functional>

namespace sonra::test {

/// A copy of this process that runs one function and ends: for tests of what several processes
/// share. The function must not start threads. Killed and reaped at the end of its scope, if it
/// still runs.
class ForkedProcess {
  public:
    explicit ForkedProcess(const std::function<void()>& work);
    ~ForkedProcess();
    ForkedProcess(const ForkedProcess&) = delete;
    ForkedProcess& operator=(const ForkedProcess&) = delete;

    pid_t pid() const { return pid_; }
    /// Ends it with SIGKILL and waits until the kernel has forgotten it.
    void killNow();
    /// Waits for its end; true if the function returned.
    bool finished();

  private:
    pid_t pid_;
    bool reaped_ = false;
};

}  // namespace sonra::test
