#pragma once

#include <cstdint>
#include <string>

namespace sonra {

/// One line to the speech worker: what to say and where to put it.
struct WorkerRequest {
    std::int64_t id = 0;
    std::string text;
    std::string voice;
    double speed = 1.0;
    std::string outWav;  ///< absolute path

    /// With its line feed.
    [[nodiscard]] std::string line() const;
};

}  // namespace sonra
