#include "frame/FileProbe.h"

#include <unistd.h>

#include <filesystem>

namespace sonra {

bool fileExists(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

bool isExecutableFile(const std::string& path) {
    // A directory passes access(X_OK) too.
    std::error_code ignored;
    return std::filesystem::is_regular_file(path, ignored) && access(path.c_str(), X_OK) == 0;
}

}  // namespace sonra
