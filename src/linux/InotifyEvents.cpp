#include "linux/InotifyEvents.h"

#include <sys/inotify.h>

#include <cstring>

namespace sonra {

std::vector<InotifyEvent> parseInotifyEvents(std::span<const std::byte> bytes) {
    std::vector<InotifyEvent> events;
    while (bytes.size() >= sizeof(inotify_event)) {
        inotify_event header;
        std::memcpy(&header, bytes.data(), sizeof header);
        bytes = bytes.subspan(sizeof header);
        if (header.len > bytes.size()) break;
        bytes = bytes.subspan(header.len);
        events.push_back({header.wd, header.mask, header.len > 0});
    }
    return events;
}

}  // namespace sonra
