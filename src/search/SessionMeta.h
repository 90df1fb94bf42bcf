#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace sonra {

/// One session of the catalogue as its consumers see it. A value; any thread.
struct SessionMeta {
    std::string sessionId;
    std::string cwd;         ///< the agent's working directory
    std::string projectDir;  ///< the transcript's directory
    std::string jsonlPath;  ///< the transcript; the file system's own bytes, which needn't be UTF-8
    double mtime = 0;       ///< seconds since 1970
    std::int64_t bytes = 0;
    std::string lastAssistantSnippet;
    std::int64_t messageCount = 0;  ///< an estimate
    std::string firstUserPrompt;
    std::string source;  ///< the agent's id
    std::string gitBranch;

    /// The first prompt, trimmed and at most 80 characters; without one the first 8 of the id.
    [[nodiscard]] std::string displayTitle() const;

    /// The file is a sub-agent's own. What it says isn't meant for the user, so it isn't offered as
    /// a session.
    [[nodiscard]] bool isOfSubAgent() const;

    bool operator==(const SessionMeta&) const = default;
};

}  // namespace sonra

template <>
struct std::hash<sonra::SessionMeta> {
    std::size_t operator()(const sonra::SessionMeta& meta) const noexcept;
};
