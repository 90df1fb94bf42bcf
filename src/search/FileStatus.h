#pragma once

#include <sys/stat.h>

namespace sonra {

/// When a file was last changed, in seconds since 1970. Whoever compares such times exactly must
/// have both from here.
inline double modificationSeconds(const struct stat& status) {
    constexpr double nanosecondsInSecond = 1e9;
    return static_cast<double>(status.st_mtim.tv_sec) +
           static_cast<double>(status.st_mtim.tv_nsec) / nanosecondsInSecond;
}

}  // namespace sonra
