#pragma once

#include <chrono>

namespace sonra {

/// How long an X server is waited for.
struct X11Patience {
    std::chrono::milliseconds connecting{1000};
    /// A server answers within a fraction of a millisecond; a busy one gets its time.
    std::chrono::milliseconds answer{300};
};

}  // namespace sonra
