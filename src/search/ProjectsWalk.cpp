#include "search/ProjectsWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <memory>
#include <string_view>

#include "search/FileStatus.h"

namespace sonra {
namespace {

struct DirectoryCloser {
    void operator()(DIR* directory) const { ::closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

/// Null for what isn't a directory, or may not be read. `name` is looked up below `parent`.
Directory openDirectory(int parent, const char* name) {
    const int fd = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return nullptr;
    Directory directory(::fdopendir(fd));
    if (!directory) ::close(fd);
    return directory;
}

bool isDots(std::string_view name) {
    return name == "." || name == "..";
}

bool mayBeDirectory(const dirent& entry) {
    return (entry.d_type == DT_DIR && !isDots(&entry.d_name[0])) || entry.d_type == DT_LNK ||
           (entry.d_type == DT_UNKNOWN && !isDots(&entry.d_name[0]));
}

}  // namespace

std::unordered_map<std::string, StatAttr> statWalk(const std::string& root) {
    std::unordered_map<std::string, StatAttr> found;
    const auto projects = openDirectory(AT_FDCWD, root.c_str());
    if (!projects) return found;
    while (const dirent* project = ::readdir(projects.get())) {
        if (!mayBeDirectory(*project)) continue;
        const auto directory = openDirectory(::dirfd(projects.get()), &project->d_name[0]);
        if (!directory) continue;
        const std::string prefix = root + "/" + &project->d_name[0] + "/";
        while (const dirent* file = ::readdir(directory.get())) {
            const std::string_view name = &file->d_name[0];
            struct stat status {};
            if (name.ends_with(".jsonl") &&
                ::fstatat(::dirfd(directory.get()), name.data(), &status, 0) == 0)
                found.emplace(prefix + std::string(name),
                              StatAttr{modificationSeconds(status), status.st_size});
        }
    }
    return found;
}

}  // namespace sonra
