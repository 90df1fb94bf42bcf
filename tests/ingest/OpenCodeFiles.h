#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>

#include "support/TempDir.h"

namespace sonra::test {

/// Says that a file was written at a moment, in milliseconds since 1970.
inline void setModified(const std::string& path, std::int64_t ms) {
    const timespec time{ms / 1000, ms % 1000 * 1'000'000};
    const std::array<timespec, 2> times{time, time};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
}

/// Writes a file, and the directories that lead to it.
inline void writeFileAt(const std::string& path, std::int64_t ms, const std::string& content) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    writeFile(path, content);
    setModified(path, ms);
}

}  // namespace sonra::test
