#include "frame/TemporaryDirectory.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "frame/Home.h"
#include "frame/Mutex.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

struct Owned {
    Mutex mutex;
    std::string path SONRA_GUARDED_BY(mutex);
};

/// Never destroyed: the directory is removed at the very end of the process.
Owned& owned() {
    static Owned& instance = *new Owned;
    return instance;
}

std::string systemDirectory() {
    const auto directory = environmentValue("TMPDIR");
    return directory.starts_with('/') ? directory : "/tmp";
}

std::string namePrefix() {
    return "sonra-" + std::to_string(getuid()) + "-";
}

/// The process id in a directory's name, 0 if the name isn't one of ours.
pid_t processOf(std::string_view name) {
    const auto prefix = namePrefix();
    if (!name.starts_with(prefix)) return 0;
    name.remove_prefix(prefix.size());
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), pid);
    return error == std::errc() && end != name.data() + name.size() && *end == '-' ? pid : 0;
}

bool isOwnerDead(pid_t pid) {
    return kill(pid, 0) != 0 && errno == ESRCH;
}

bool isOurDirectory(const std::string& path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == getuid();
}

}  // namespace

std::string temporaryDirectory() {
    auto& [mutex, path] = owned();
    const MutexLock lock(mutex);
    // Cleaners of old temporary files may have taken an idle directory away.
    if (path.empty() || !isOurDirectory(path)) {
        path.clear();
        auto pattern =
            systemDirectory() + "/" + namePrefix() + std::to_string(getpid()) + "-XXXXXX";
        if (mkdtemp(pattern.data()) != nullptr) path = std::move(pattern);
    }
    return path;
}

void removeTemporaryDirectory() {
    auto& [mutex, path] = owned();
    const MutexLock lock(mutex);
    if (path.empty()) return;
    std::error_code ignored;
    fs::remove_all(path, ignored);
    path.clear();
}

void sweepTemporaryDirectories() {
    std::error_code error;
    for (fs::directory_iterator it(systemDirectory(), error), end; !error && it != end;
         it.increment(error)) {
        const auto pid = processOf(it->path().filename().string());
        if (pid <= 0 || !isOwnerDead(pid) || !isOurDirectory(it->path().string())) continue;
        std::error_code ignored;
        fs::remove_all(it->path(), ignored);
    }
}

}  // namespace sonra
