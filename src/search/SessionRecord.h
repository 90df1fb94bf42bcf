#pragma once

#include <cstdint>
#include <string>

#include "search/SessionMeta.h"

namespace sonra {

/// One row of the catalogue as it is kept on disk: what a transcript's head and tail tell of it. A
/// value; any thread.
struct SessionRecord {
    std::string id;    ///< the file's name without its extension
    std::string path;  ///< of the transcript; the file system's own bytes
    std::string cwd;
    std::string project;  ///< the last component of `cwd`
    double mtime = 0;     ///< seconds since 1970
    std::int64_t size = 0;
    std::int64_t msgCount = 0;
    std::string firstUserPrompt;
    std::string lastSnippet;
    std::string source;
    std::string gitBranch;

    [[nodiscard]] SessionMeta toMeta() const;
    static SessionRecord from(const SessionMeta& meta);

    bool operator==(const SessionRecord&) const = default;
};

}  // namespace sonra
