#pragma once

#include <sys/stat.h>

#include <chrono>
#include <string>

namespace sonra::test {

/// When the file was written, by its own stamp: a test that takes this for now isn't held up by the
/// machine. The beginning of time if there is no file.
inline std::chrono::system_clock::time_point writtenAt(const std::string& path) {
    using std::chrono::system_clock;
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) return {};
    const auto sinceEpoch = std::chrono::seconds(status.st_mtim.tv_sec) +
                            std::chrono::nanoseconds(status.st_mtim.tv_nsec);
    return system_clock::time_point(std::chrono::duration_cast<system_clock::duration>(sinceEpoch));
}

}  // namespace sonra::test
