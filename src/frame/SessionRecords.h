#pragma once

#include <string>

namespace sonra {

/// A session that is being narrated, as its row in the shared document has it.
struct AttachedSession {
    std::string id;
    std::string cwd;
    std::string source;
    std::string branch;
    std::string transcript;

    bool operator==(const AttachedSession&) const = default;
};

/// A session that the daemon found on disk.
struct DiscoveredRow {
    std::string id;
    std::string cwd;
    std::string lastText;
    std::string source;
    std::string transcript;
    double mtimeMs = 0;  ///< milliseconds since the epoch
    bool active = false;
    std::string title;
    std::string branch;

    bool operator==(const DiscoveredRow&) const = default;
};

}  // namespace sonra
