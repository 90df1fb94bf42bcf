#pragma once

#include <xcb/xcb.h>

#include <chrono>
#include <cstdlib>
#include <deque>
#include <memory>
#include <set>
#include <string>

#include "linux/X11Patience.h"

namespace sonra {

/// What the X server sends is freed with `free`.
struct X11Free {
    void operator()(void* sent) const { std::free(sent); }
};
template <typename Sent>
using X11Owned = std::unique_ptr<Sent, X11Free>;

/// A connection to the X server, apart from the toolkit's, that never waits long for it.
///
/// One thread. Connecting and every answer have a limit. A connection that broke stays silent:
/// questions have no answers, nothing arrives.
class X11Link {
  public:
    /// Null if there is no server, or one that doesn't answer in time: then `silent` becomes true,
    /// and asking again later is worth it. An empty display is the environment's.
    static std::unique_ptr<X11Link> open(const std::string& display, X11Patience patience = {},
                                         bool* silent = nullptr);
    ~X11Link();
    X11Link(const X11Link&) = delete;
    X11Link& operator=(const X11Link&) = delete;

    [[nodiscard]] xcb_connection_t* get() const { return connection_; }
    [[nodiscard]] xcb_window_t root() const { return root_; }
    [[nodiscard]] int fd() const { return xcb_get_file_descriptor(connection_); }
    [[nodiscard]] bool isBroken() const { return xcb_connection_has_error(connection_) != 0; }

    /// The reply to a request; null if it failed or takes too long.
    template <typename Reply, typename Cookie>
    X11Owned<Reply> reply(Cookie cookie) {
        return X11Owned<Reply>(static_cast<Reply*>(await(cookie.sequence)));
    }
    /// Waits until the server has dealt with all that was sent before; false if that takes too
    /// long.
    bool sync();
    /// Whether a request without a reply has failed, once `sync` was true behind it. True once.
    bool hasFailed(xcb_void_cookie_t cookie) { return failed_.erase(cookie.sequence) > 0; }
    /// What has arrived, in order; null at the end. Nothing is waited for.
    X11Owned<xcb_generic_event_t> nextEvent();

  private:
    X11Link(xcb_connection_t* connection, xcb_window_t root, std::chrono::milliseconds patience)
        : connection_(connection), root_(root), patience_(patience) {}
    void* await(unsigned sequence);
    void sort(X11Owned<xcb_generic_event_t> event);

    xcb_connection_t* const connection_;
    const xcb_window_t root_;
    const std::chrono::milliseconds patience_;
    std::deque<X11Owned<xcb_generic_event_t>> events_;
    std::set<unsigned> failed_;
};

}  // namespace sonra
