#include "linux/LinkedPath.h"

#include <deque>
#include <system_error>

namespace sonra {
namespace {

namespace fs = std::filesystem;

/// As many as the system itself follows.
constexpr std::size_t mostLinks = 40;

void putBefore(std::deque<fs::path>& rest, const fs::path& target) {
    const std::vector<fs::path> names(target.begin(), target.end());
    rest.insert(rest.begin(), names.begin(), names.end());
}

}  // namespace

LinkedPath LinkedPath::read(const std::string& path) {
    LinkedPath result;
    std::deque<fs::path> rest;
    putBefore(rest, path);
    fs::path here;
    while (!rest.empty()) {
        const auto name = rest.front();
        rest.pop_front();
        if (name.empty() || name == ".") continue;
        std::error_code error;
        const auto next = name == ".." ? here.parent_path() : here / name;
        if (fs::is_symlink(fs::symlink_status(next, error))) {
            if (result.links.size() == mostLinks) break;
            result.links.push_back({here, name});
            const auto target = fs::read_symlink(next, error);
            if (target.is_absolute()) here.clear();
            putBefore(rest, target);
        } else if (fs::is_directory(next, error)) {
            here = next;
            result.directories.push_back(here);
        } else {
            break;
        }
    }
    return result;
}

}  // namespace sonra
