#pragma once

#include <unistd.h>

namespace sonra::test {

/// Ends the test program by a signal if the test is still there after so many seconds: for tests of
/// waits that must end by themselves, which would otherwise hang where they don't.
class TimeLimit {
  public:
    explicit TimeLimit(unsigned seconds) { alarm(seconds); }
    ~TimeLimit() { alarm(0); }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;
};

}  // namespace sonra::test
