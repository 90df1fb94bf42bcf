#include "widgets/WindowActivation.h"

#include <QAbstractNativeEventFilter>
#include <QCoreApplication>
#include <QWidget>

#include "widgets/XcbConnection.h"

namespace sonra::WindowActivation {
namespace {

constexpr std::uint32_t fromUser = 2;  ///< the kind of program that asks

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

void askFor(xcb_window_t window, xcb_timestamp_t now) {
    auto* connection = XcbConnection::get();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, userTimeWindow(window),
                        XcbConnection::atom("_NET_WM_USER_TIME"), XCB_ATOM_CARDINAL, 32, 1, &now);
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = XcbConnection::atom("_NET_ACTIVE_WINDOW");
    event.data.data32[0] = fromUser;
    event.data.data32[1] = now;
    xcb_send_event(connection, 0, XcbConnection::root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(connection);
}

/// Waits in the event loop for the server's time, which comes with the event of a change, and then
/// asks. A claim by itself; gone once it has asked or its window has gone. Main thread only.
class Claim : public QObject, public QAbstractNativeEventFilter {
  public:
    explicit Claim(QWidget& window)
        : QObject(&window),
          window_(window),
          id_(static_cast<xcb_window_t>(window.internalWinId())),
          mark_(mark()) {
        QCoreApplication::instance()->installNativeEventFilter(this);
        xcb_change_property(XcbConnection::get(), XCB_PROP_MODE_APPEND, id_, mark_, XCB_ATOM_STRING,
                            8, 0, nullptr);
        xcb_flush(XcbConnection::get());
    }

    bool nativeEventFilter(const QByteArray& /*type*/, void* message,
                           qintptr* /*result*/) override {
        const auto* const event = static_cast<const xcb_generic_event_t*>(message);
        if ((event->response_type & 0x7F) != XCB_PROPERTY_NOTIFY) return false;
        const auto* const change = reinterpret_cast<const xcb_property_notify_event_t*>(event);
        if (isOver_ || change->window != id_ || change->atom != mark_) return false;
        isOver_ = true;
        deleteLater();
        // Hidden meanwhile, it wants the keyboard no more.
        if (window_.isVisible()) askFor(id_, change->time);
        return false;
    }

  private:
    /// Asked for once: no answer of the server is waited for at a later claim.
    static xcb_atom_t mark() {
        static const auto atom = XcbConnection::atom("_SONRA_CLAIM");
        return atom;
    }

    QWidget& window_;
    const xcb_window_t id_;
    const xcb_atom_t mark_;
    bool isOver_ = false;
};

}  // namespace

void claim(QWidget& window) {
    if (XcbConnection::get() && window.internalWinId() != 0) new Claim(window);
}

}  // namespace sonra::WindowActivation
