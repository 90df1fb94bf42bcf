#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace sonra {

/// Whole files: a document is read at once, and replaced in one step, so that no reader ever sees
/// half of it and a writer that is killed leaves the old one. No instances; any thread, but two
/// writers of one path need a lock.
struct AtomicFile {
    /// Writes `<path>.tmp` (mode 0600) and renames it over `path`. False if anything fails, for
    /// which errno tells the reason; `path` is then untouched.
    static bool write(const std::string& path, std::string_view bytes);
    /// As `write`, through a temporary file of this name in the same directory.
    static bool writeThrough(const std::string& temporary, const std::string& path,
                             std::string_view bytes);

    /// The content of a regular file; absent if there is none or it can't be read.
    static std::optional<std::string> read(const std::string& path);
};

}  // namespace sonra
