#include "frame/FileProbe.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace sonra {

std::optional<FileIdentity> identify(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return std::nullopt;
    return FileIdentity{status.st_dev, status.st_ino};
}

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
