#pragma once

#include <string>
#include <vector>

#include "frame/Json.h"

namespace sonra::test {

/// Records of the shared log during a test. Every test program installs a capturing shared log: a
/// warning or error that no LogWatch announced with `expect` fails the test in which it was
/// written.
class LogWatch {
  public:
    LogWatch();
    ~LogWatch();
    LogWatch(const LogWatch&) = delete;
    LogWatch& operator=(const LogWatch&) = delete;

    /// Announces a warning or error with this message; `~LogWatch` fails the test if it never came.
    void expect(const std::string& message);
    /// Records written since construction.
    std::vector<Json> records() const;
    /// Those with this message.
    std::vector<Json> records(const std::string& message) const;
    std::size_t count(const std::string& message) const { return records(message).size(); }

  private:
    std::size_t start_;
    std::vector<std::string> expected_;
};

}  // namespace sonra::test
