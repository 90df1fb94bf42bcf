#include "widgets/WindowActivation.h"

#include <QWidget>

#include "widgets/XcbConnection.h"

namespace sonra::WindowActivation {
namespace {

constexpr std::uint32_t fromUser = 2;  ///< the kind of program that asks

struct Disconnect {
    void operator()(xcb_connection_t* connection) const { xcb_disconnect(connection); }
};

/// The server's time. It comes with the event of a change, and Qt would take that event away on its
/// own connection; XCB_CURRENT_TIME where the server can't be reached once more.
xcb_timestamp_t serverTime() {
    const std::unique_ptr<xcb_connection_t, Disconnect> own(xcb_connect(nullptr, nullptr));
    if (xcb_connection_has_error(own.get()) != 0) return XCB_CURRENT_TIME;
    const auto* screen = xcb_setup_roots_iterator(xcb_get_setup(own.get())).data;
    const auto window = xcb_generate_id(own.get());
    const std::uint32_t events = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(own.get(), XCB_COPY_FROM_PARENT, window, screen->root, 0, 0, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, screen->root_visual, XCB_CW_EVENT_MASK, &events);
    xcb_change_property(own.get(), XCB_PROP_MODE_APPEND, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING,
                        8, 0, nullptr);
    xcb_flush(own.get());
    while (const XcbReply<xcb_generic_event_t> event{xcb_wait_for_event(own.get())}) {
        if ((event->response_type & 0x7F) != XCB_PROPERTY_NOTIFY) continue;
        return reinterpret_cast<const xcb_property_notify_event_t*>(event.get())->time;
    }
    return XCB_CURRENT_TIME;
}

/// Where window managers look for the time of the user's last deed in a window.
xcb_window_t userTimeWindow(xcb_window_t window) {
    auto* connection = XcbConnection::get();
    const XcbReply<xcb_get_property_reply_t> reply(xcb_get_property_reply(
        connection,
        xcb_get_property(connection, 0, window, XcbConnection::atom("_NET_WM_USER_TIME_WINDOW"),
                         XCB_ATOM_WINDOW, 0, 1),
        nullptr));
    if (!reply || xcb_get_property_value_length(reply.get()) < int{sizeof(xcb_window_t)})
        return window;
    return *static_cast<const xcb_window_t*>(xcb_get_property_value(reply.get()));
}

}  // namespace

void claim(const QWidget& window) {
    auto* connection = XcbConnection::get();
    if (!connection || window.internalWinId() == 0) return;
    const auto id = static_cast<xcb_window_t>(window.internalWinId());
    const auto now = serverTime();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, userTimeWindow(id),
                        XcbConnection::atom("_NET_WM_USER_TIME"), XCB_ATOM_CARDINAL, 32, 1, &now);
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = id;
    event.type = XcbConnection::atom("_NET_ACTIVE_WINDOW");
    event.data.data32[0] = fromUser;
    event.data.data32[1] = now;
    xcb_send_event(connection, 0, XcbConnection::root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(connection);
}

}  // namespace sonra::WindowActivation
