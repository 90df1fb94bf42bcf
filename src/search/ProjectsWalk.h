#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

namespace sonra {

/// What tells whether a transcript has changed.
struct StatAttr {
    double mtime = 0;  ///< seconds since 1970
    std::int64_t size = 0;

    bool operator==(const StatAttr&) const = default;
};

/// All transcripts below a projects directory: the names that end in ".jsonl" in each directory of
/// it, and nothing deeper. What can't be read is left out. Links are followed. Any thread; takes as
/// long as the disk does.
std::unordered_map<std::string, StatAttr> statWalk(const std::string& root);

}  // namespace sonra
