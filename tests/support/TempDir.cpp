#include "support/TempDir.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace sonra::test {

TempDir::TempDir() : path_("/tmp/sonra-t-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) std::abort();
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(std::string name, const std::string& value) : name_(std::move(name)) {
    const char* before = std::getenv(name_.c_str());
    wasSet_ = before != nullptr;
    if (wasSet_) before_ = before;
    setenv(name_.c_str(), value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (wasSet_) {
        setenv(name_.c_str(), before_.c_str(), 1);
    } else {
        unsetenv(name_.c_str());
    }
}

TempHome::TempHome() : home_("HOME", path()), cache_("XDG_CACHE_HOME", *this / ".cache") {
    std::filesystem::create_directories(shared());
}

std::string readFile(const std::string& path) {
    // Unlike the iterators of a stream this bears files of processes that end meanwhile.
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

void writeFile(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

void appendFile(const std::string& path, std::string_view content) {
    std::ofstream(path, std::ios::binary | std::ios::app) << content;
}

}  // namespace sonra::test
