#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "frame/UniqueFd.h"

namespace sonra::test {

/// A child program of a test: killed and reaped at the end of its scope, and by the system if the
/// test crashes.
class TestProcess {
  public:
    /// `environment` holds NAME=value pairs that are set beside the test's own.
    explicit TestProcess(std::vector<std::string> arguments,
                         std::vector<std::string> environment = {});
    ~TestProcess();
    TestProcess(const TestProcess&) = delete;
    TestProcess& operator=(const TestProcess&) = delete;

    /// The reading end of the program's standard output.
    [[nodiscard]] int output() const { return output_.get(); }
    void signal(int number) const;
    /// Kills it and waits for its end.
    void kill();
    /// Everything it prints, up to its end.
    std::string readAll();

  private:
    UniqueFd output_;
    pid_t pid_ = -1;
};

}  // namespace sonra::test
