#include "widgets/PanelWindowHints.h"

#include <xcb/shape.h>

#include <QWidget>
#include <array>
#include <cmath>

#include "widgets/XcbConnection.h"

namespace sonra::PanelWindowHints {
namespace {

constexpr std::uint32_t everyDesktop = 0xFFFFFFFF;
constexpr std::uint32_t fromUser = 2;  ///< the kind of program that asks

xcb_window_t idOf(const QWidget& window) {
    return static_cast<xcb_window_t>(window.internalWinId());
}

bool applies(const QWidget& window) {
    return XcbConnection::get() && window.internalWinId() != 0;
}

int toServer(int logical, double scale) {
    return static_cast<int>(std::lround(logical * scale));
}

}  // namespace

void prepareToShow(const QWidget& window) {
    if (!applies(window)) return;
    const std::array states{XcbConnection::atom("_NET_WM_STATE_ABOVE"),
                            XcbConnection::atom("_NET_WM_STATE_SKIP_TASKBAR"),
                            XcbConnection::atom("_NET_WM_STATE_SKIP_PAGER"),
                            XcbConnection::atom("_NET_WM_STATE_STICKY")};
    auto* connection = XcbConnection::get();
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, idOf(window),
                        XcbConnection::atom("_NET_WM_STATE"), XCB_ATOM_ATOM, 32, states.size(),
                        states.data());
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, idOf(window),
                        XcbConnection::atom("_NET_WM_DESKTOP"), XCB_ATOM_CARDINAL, 32, 1,
                        &everyDesktop);
}

void claimAllDesktops(const QWidget& window) {
    if (!applies(window)) return;
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = idOf(window);
    event.type = XcbConnection::atom("_NET_WM_DESKTOP");
    event.data.data32[0] = everyDesktop;
    event.data.data32[1] = fromUser;
    xcb_send_event(XcbConnection::get(), 0, XcbConnection::root(),
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&event));
    xcb_flush(XcbConnection::get());
}

void setReach(const QWidget& window, const QRect& region, const QMargins& shadow) {
    if (!applies(window)) return;
    const double scale = window.devicePixelRatioF();
    auto* connection = XcbConnection::get();
    const xcb_rectangle_t reach{static_cast<std::int16_t>(toServer(region.x(), scale)),
                                static_cast<std::int16_t>(toServer(region.y(), scale)),
                                static_cast<std::uint16_t>(toServer(region.width(), scale)),
                                static_cast<std::uint16_t>(toServer(region.height(), scale))};
    xcb_shape_rectangles(connection, XCB_SHAPE_SO_SET, XCB_SHAPE_SK_INPUT,
                         XCB_CLIP_ORDERING_UNSORTED, idOf(window), 0, 0, 1, &reach);
    const std::array extents{static_cast<std::uint32_t>(toServer(shadow.left(), scale)),
                             static_cast<std::uint32_t>(toServer(shadow.right(), scale)),
                             static_cast<std::uint32_t>(toServer(shadow.top(), scale)),
                             static_cast<std::uint32_t>(toServer(shadow.bottom(), scale))};
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, idOf(window),
                        XcbConnection::atom("_GTK_FRAME_EXTENTS"), XCB_ATOM_CARDINAL, 32,
                        extents.size(), extents.data());
    xcb_flush(connection);
}

std::optional<QPoint> serverPosition(const QWidget& window) {
    if (!applies(window)) return std::nullopt;
    auto* connection = XcbConnection::get();
    const XcbReply<xcb_translate_coordinates_reply_t> reply(xcb_translate_coordinates_reply(
        connection,
        xcb_translate_coordinates(connection, idOf(window), XcbConnection::root(), 0, 0), nullptr));
    if (!reply) return std::nullopt;
    return QPoint(reply->dst_x, reply->dst_y);
}

}  // namespace sonra::PanelWindowHints
