#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace sonra {

/// What tells the file at a path from another one that took its place.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

/// Of what stands at `path`, or of what the link there leads to; absent if there is nothing.
std::optional<FileIdentity> identify(const std::string& path);

/// True if something stands at `path`, whatever it is; a link that leads nowhere doesn't count.
bool fileExists(const std::string& path);

/// True if `path` is a regular file that this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace sonra
