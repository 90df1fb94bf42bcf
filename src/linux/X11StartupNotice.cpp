#include "linux/X11StartupNotice.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "linux/X11Link.h"

namespace sonra::X11StartupNotice {
namespace {

constexpr auto variable = "DESKTOP_STARTUP_ID";
/// What says the same to a Wayland desktop; often both are set.
constexpr auto tokenVariable = "XDG_ACTIVATION_TOKEN";
/// Bytes that one client message carries.
constexpr std::size_t pieceSize = 20;

/// As the protocol quotes a value.
std::string inQuotes(std::string_view value) {
    std::string result = "\"";
    for (const char character : value) {
        if (character == '"' || character == '\\') result += '\\';
        result += character;
    }
    return result + '"';
}

xcb_intern_atom_cookie_t askForAtom(X11Link& link, std::string_view name) {
    return xcb_intern_atom(link.get(), 0, static_cast<std::uint16_t>(name.size()), name.data());
}

/// What the pieces of a message are known to belong together by; never shown.
xcb_window_t makeWindow(X11Link& link) {
    const auto window = xcb_generate_id(link.get());
    const std::uint32_t unmanaged = 1;
    xcb_create_window(link.get(), XCB_COPY_FROM_PARENT, window, link.root(), -1, -1, 1, 1, 0,
                      XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_OVERRIDE_REDIRECT,
                      &unmanaged);
    return window;
}

/// In pieces, of which the first has a type of its own and the last ends with a zero byte.
void broadcast(X11Link& link, const std::string& text, xcb_atom_t begin, xcb_atom_t next) {
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 8;
    event.window = makeWindow(link);
    for (std::size_t at = 0; at <= text.size(); at += pieceSize) {
        event.type = at == 0 ? begin : next;
        std::fill_n(event.data.data8, pieceSize, 0);
        const auto piece = std::string_view(text).substr(at, pieceSize);
        std::copy(piece.begin(), piece.end(), event.data.data8);
        xcb_send_event(link.get(), 0, link.root(), XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
    }
    xcb_destroy_window(link.get(), event.window);
}

}  // namespace

void end(const std::string& id, const std::string& display, X11Patience patience) {
    if (id.empty()) return;
    const auto link = X11Link::open(display, patience);
    if (!link) return;
    // Both asked for before either answer is waited for.
    const auto begin = askForAtom(*link, "_NET_STARTUP_INFO_BEGIN");
    const auto next = askForAtom(*link, "_NET_STARTUP_INFO");
    const auto beginAtom = link->reply<xcb_intern_atom_reply_t>(begin);
    const auto nextAtom = link->reply<xcb_intern_atom_reply_t>(next);
    if (!beginAtom || !nextAtom) return;
    broadcast(*link, "remove: ID=" + inQuotes(id), beginAtom->atom, nextAtom->atom);
    link->sync();
}

std::string takeFromEnvironment() {
    const char* const value = std::getenv(variable);
    std::string id = value ? value : "";
    unsetenv(variable);
    unsetenv(tokenVariable);
    return id;
}

}  // namespace sonra::X11StartupNotice
