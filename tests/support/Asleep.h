#pragma once

#include <chrono>
#include <cstdint>
#include <ctime>
#include <fstream>

namespace sonra::test {

/// How long this thread slept while something ran: time in which it neither ran nor stood in line
/// for a processor. Unlike the time on the wall it doesn't grow on a machine that is busy.
class Asleep {
  public:
    using Duration = std::chrono::nanoseconds;

    template <typename Body>
    static Duration during(Body body) {
        const auto start = awake();
        const auto wallStart = Clock::now();
        body();
        const Duration wall = Clock::now() - wallStart;
        return wall - (awake() - start);
    }

  private:
    using Clock = std::chrono::steady_clock;

    static Duration awake() {
        timespec ran{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ran);
        return std::chrono::seconds(ran.tv_sec) + Duration(ran.tv_nsec) + inLine();
    }
    /// The second figure of the kernel's account; 0 where it keeps none.
    static Duration inLine() {
        std::ifstream account("/proc/thread-self/schedstat");
        std::int64_t ran = 0;
        std::int64_t waited = 0;
        account >> ran >> waited;
        return Duration(waited);
    }
};

}  // namespace sonra::test
