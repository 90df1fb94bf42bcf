#pragma once

#include <string>

namespace sonra {

/// What a process that plays its own speech needs to know of the service.
struct KokoroStreamingContext {
    std::string serviceSocketPath;
    std::string playerMode;
    int volume = 100;  ///< percent
    bool captionsEnabled = false;
    std::string narrationSnippet;

    bool operator==(const KokoroStreamingContext&) const = default;
};

}  // namespace sonra
