#include "widgets/Compositor.h"

#include <xcb/xfixes.h>

#include <QCoreApplication>
#include <string>

#include "widgets/XcbConnection.h"

namespace sonra {

Compositor::Compositor() {
    if (!XcbConnection::get()) return;
    int screen = 0;
    char* host = nullptr;
    int display = 0;
    if (xcb_parse_display(nullptr, &host, &display, &screen) != 0) std::free(host);
    selection_ = XcbConnection::atom(("_NET_WM_CM_S" + std::to_string(screen)).c_str());
    follow();
    look();
}

Compositor::~Compositor() {
    if (ownerEvent_ != 0) QCoreApplication::instance()->removeNativeEventFilter(this);
}

void Compositor::follow() {
    auto* connection = XcbConnection::get();
    const auto* extension = xcb_get_extension_data(connection, &xcb_xfixes_id);
    if (!extension || !extension->present) return;
    const XcbReply<xcb_xfixes_query_version_reply_t> version(xcb_xfixes_query_version_reply(
        connection, xcb_xfixes_query_version(connection, 5, 0), nullptr));
    if (!version) return;
    xcb_xfixes_select_selection_input(connection, XcbConnection::root(), selection_,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_WINDOW_DESTROY |
                                          XCB_XFIXES_SELECTION_EVENT_MASK_SELECTION_CLIENT_CLOSE);
    ownerEvent_ = static_cast<std::uint8_t>(extension->first_event + XCB_XFIXES_SELECTION_NOTIFY);
    QCoreApplication::instance()->installNativeEventFilter(this);
}

void Compositor::look() {
    const XcbReply<xcb_get_selection_owner_reply_t> reply(xcb_get_selection_owner_reply(
        XcbConnection::get(), xcb_get_selection_owner(XcbConnection::get(), selection_), nullptr));
    const bool running = reply && reply->owner != XCB_NONE;
    if (running == running_) return;
    running_ = running;
    Q_EMIT changed();
}

bool Compositor::nativeEventFilter(const QByteArray& type, void* message, qintptr* /*result*/) {
    if (type != "xcb_generic_event_t") return false;
    const auto* event = static_cast<const xcb_generic_event_t*>(message);
    if ((event->response_type & 0x7F) != ownerEvent_) return false;
    const auto* change = static_cast<const xcb_xfixes_selection_notify_event_t*>(message);
    if (change->selection == selection_) look();
    return false;
}

}  // namespace sonra
