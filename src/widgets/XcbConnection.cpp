#include "widgets/XcbConnection.h"

#include <QGuiApplication>
#include <cstring>

namespace sonra::XcbConnection {

xcb_connection_t* get() {
    const auto* x11 =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t root() {
    return xcb_setup_roots_iterator(xcb_get_setup(get())).data->root;
}

xcb_atom_t atom(const char* name) {
    const auto length = static_cast<std::uint16_t>(std::strlen(name));
    const XcbReply<xcb_intern_atom_reply_t> reply(
        xcb_intern_atom_reply(get(), xcb_intern_atom(get(), 0, length, name), nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

}  // namespace sonra::XcbConnection
