#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <string>

namespace sonra {

/// Connecting to an X server without being held up by one that takes connections and never answers.
///
/// XCB waits for such a server without end, so a thread does it. A display has one attempt at a
/// time: one that outlasted its limit goes on, is logged once, and the next call takes it up as it
/// is by then. Any thread; a connection that is handed out belongs to the caller.
namespace X11Connecting {

enum class Outcome { connected, refused, silent };

struct Result {
    Outcome outcome = Outcome::refused;
    xcb_connection_t* connection = nullptr;  ///< null unless connected
    int screen = 0;                          ///< the display's own, counted from 0
};

/// An empty display is the environment's. Waits for `limit` at most, and not at all for an attempt
/// that was silent before.
Result connect(const std::string& display, std::chrono::milliseconds limit);

}  // namespace X11Connecting
}  // namespace sonra
