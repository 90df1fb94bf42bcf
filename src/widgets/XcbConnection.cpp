#include "widgets/XcbConnection.h"

#include <QGuiApplication>
#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <string>

namespace sonra::XcbConnection {
namespace {

using Atoms = std::map<std::string, xcb_atom_t, std::less<>>;

constexpr std::array usualNames{"_NET_ACTIVE_WINDOW",
                                "_NET_SYSTEM_TRAY_S0",
                                "_NET_WM_CM_S0",
                                "_NET_WM_DESKTOP",
                                "_NET_WM_STATE",
                                "_NET_WM_STATE_ABOVE",
                                "_NET_WM_STATE_SKIP_PAGER",
                                "_NET_WM_STATE_SKIP_TASKBAR",
                                "_NET_WM_STATE_STICKY",
                                "_NET_WM_USER_TIME",
                                "_NET_WM_USER_TIME_WINDOW",
                                "_GTK_FRAME_EXTENTS",
                                "_SONRA_CLAIM"};

xcb_intern_atom_cookie_t ask(const char* name) {
    return xcb_intern_atom(get(), 0, static_cast<std::uint16_t>(std::strlen(name)), name);
}

xcb_atom_t await(xcb_intern_atom_cookie_t cookie) {
    const XcbReply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(get(), cookie, nullptr));
    return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
}

/// All are asked for before the first answer is waited for: one round trip for the lot.
Atoms internAll() {
    std::array<xcb_intern_atom_cookie_t, usualNames.size()> asked{};
    std::ranges::transform(usualNames, asked.begin(), ask);
    Atoms atoms;
    for (std::size_t i = 0; i < usualNames.size(); ++i)
        atoms.emplace(usualNames.at(i), await(asked.at(i)));
    return atoms;
}

}  // namespace

xcb_connection_t* get() {
    const auto* x11 =
        qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    return x11 ? x11->connection() : nullptr;
}

xcb_window_t root() {
    return xcb_setup_roots_iterator(xcb_get_setup(get())).data->root;
}

xcb_atom_t atom(const char* name) {
    // One for the life of the process, as Qt's connection is.
    static auto known = internAll();
    if (const auto found = known.find(name); found != known.end()) return found->second;
    return known.emplace(name, await(ask(name))).first->second;
}

}  // namespace sonra::XcbConnection
