#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace sonra {

/// What a path that goes through symbolic links leads over. A value; reading it touches the disk.
struct LinkedPath {
    struct Link {
        std::string directory;  ///< where it lies, without links itself
        std::string name;
    };

    std::vector<Link> links;  ///< in the order in which they are met
    /// All directories that the path leads over, links followed, as far as there are any.
    std::vector<std::string> directories;

    /// An absolute path. Links that lead in a circle end the list.
    static LinkedPath read(const std::string& path);
};

}  // namespace sonra
