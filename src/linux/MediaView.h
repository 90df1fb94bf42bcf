#pragma once

#include <cstdint>
#include <string>

#include "platform/NowPlayingCenter.h"

namespace sonra {

/// What a desktop's media widget shows, but for the position, which it counts itself.
struct MediaView {
    PlaybackState state = PlaybackState::stopped;
    std::uint64_t track = 0;  ///< a number of its own for each sound; 0 while there is none
    std::string title;
    std::string artist;
    std::string album;
    std::int64_t lengthUs = 0;  ///< 0 if it isn't known
    double volume = 1;
    bool canPlay = false;
    bool canPause = false;
    bool canNavigate = false;
    bool canSeek = false;

    bool operator==(const MediaView&) const = default;
};

}  // namespace sonra
