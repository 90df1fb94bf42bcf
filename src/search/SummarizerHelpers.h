#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// Text and file helpers of the Summarizer. No instances; any thread.
struct SummarizerHelpers {
    /// One line for a list: code fences, links, bold marks and line ends are gone.
    static std::string cleanForList(std::string_view text);
    /// How often `pattern` stands in `haystack`, without overlaps; an empty one nowhere.
    static std::size_t countOccurrences(std::string_view pattern, std::string_view haystack);
    /// The last `maxBytes` bytes of a file; absent if it can't be read.
    static std::optional<std::string> readTail(const std::string& path, std::size_t maxBytes);
    /// The path for which an agent's project directory stands: each "-" for a "/", which is not
    /// always what it was.
    static std::string decodeCwd(std::string_view projectDirBasename);
};

}  // namespace sonra
