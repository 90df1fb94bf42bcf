#include "linux/X11Link.h"

#include <poll.h>
#include <xcb/xcbext.h>

#include <chrono>
#include <utility>

#include "linux/X11Connecting.h"

namespace sonra {
namespace {

using Clock = std::chrono::steady_clock;

xcb_window_t rootOf(xcb_connection_t* connection, int number) {
    auto screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (; number > 0 && screens.rem > 1; --number) xcb_screen_next(&screens);
    return screens.data->root;
}

}  // namespace

std::unique_ptr<X11Link> X11Link::open(const std::string& display, X11Patience patience,
                                       bool* silent) {
    const auto result = X11Connecting::connect(display, patience.connecting);
    if (silent) *silent = result.outcome == X11Connecting::Outcome::silent;
    if (!result.connection) return nullptr;
    const auto root = rootOf(result.connection, result.screen);
    return std::unique_ptr<X11Link>(new X11Link(result.connection, root, patience.answer));
}

X11Link::~X11Link() {
    xcb_disconnect(connection_);
}

void* X11Link::await(unsigned sequence) {
    xcb_flush(connection_);
    const auto deadline = Clock::now() + patience_;
    for (;;) {
        void* reply = nullptr;
        xcb_generic_error_t* error = nullptr;
        if (xcb_poll_for_reply(connection_, sequence, &reply, &error) != 0) {
            std::free(error);
            return reply;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0 || isBroken()) {
            xcb_discard_reply(connection_, sequence);
            return nullptr;
        }
        pollfd readable{fd(), POLLIN, 0};
        poll(&readable, 1, static_cast<int>(left.count()));
    }
}

bool X11Link::sync() {
    const auto answered =
        reply<xcb_get_input_focus_reply_t>(xcb_get_input_focus(connection_)) != nullptr;
    while (auto* const event = xcb_poll_for_queued_event(connection_))
        sort(X11Owned<xcb_generic_event_t>(event));
    return answered;
}

void X11Link::sort(X11Owned<xcb_generic_event_t> event) {
    if (event->response_type == 0)
        failed_.insert(event->full_sequence);
    else
        events_.push_back(std::move(event));
}

X11Owned<xcb_generic_event_t> X11Link::nextEvent() {
    while (auto* const event = xcb_poll_for_event(connection_))
        sort(X11Owned<xcb_generic_event_t>(event));
    if (events_.empty()) return nullptr;
    auto event = std::move(events_.front());
    events_.pop_front();
    return event;
}

}  // namespace sonra
