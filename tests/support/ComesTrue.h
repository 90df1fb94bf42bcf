#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace sonra::test {

/// Waits for what another thread or process does; false after 20 seconds.
inline bool comesTrue(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace sonra::test
