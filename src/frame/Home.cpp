#include "frame/Home.h"

#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cstdlib>

namespace sonra {
namespace {

std::string accountHome() {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> buffer{};
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr)
        return entry.pw_dir;
    return "/";
}

}  // namespace

std::string environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? std::string() : value;
}

std::string homeDirectory() {
    const auto home = environmentValue("HOME");
    return home.empty() ? accountHome() : home;
}

std::string sharedDirectory() {
    return homeDirectory() + "/.claude/tts";
}

std::string configurationDirectory() {
    auto directory = environmentValue("XDG_CONFIG_HOME");
    return directory.starts_with('/') ? directory : homeDirectory() + "/.config";
}

}  // namespace sonra
