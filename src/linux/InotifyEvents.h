#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sonra {

/// One record of an inotify descriptor, without the entry's name: nobody here needs more than that
/// there was one.
struct InotifyEvent {
    int wd = -1;
    std::uint32_t mask = 0;  ///< IN_... bits
    bool aboutEntry =
        false;  ///< concerns an entry of the watched directory, not the directory itself

    bool operator==(const InotifyEvent&) const = default;
};

/// The records in what one read of an inotify descriptor returned. A record that is cut off ends
/// the list.
std::vector<InotifyEvent> parseInotifyEvents(std::span<const std::byte> bytes);

}  // namespace sonra
