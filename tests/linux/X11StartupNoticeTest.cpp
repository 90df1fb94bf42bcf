#include "linux/X11StartupNotice.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <vector>

#include "PrivateXServer.h"
#include "linux/X11Link.h"
#include "support/ComesTrue.h"
#include "support/TempDir.h"
#include "support/TimeLimit.h"

namespace sonra {
namespace {

using namespace std::chrono_literals;

/// Hears what a desktop hears on the root window.
class Desktop {
  public:
    explicit Desktop(const std::string& display) : link_(X11Link::open(display, test::patient)) {
        const std::uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(link_->get(), link_->root(), XCB_CW_EVENT_MASK, &mask);
        begin_ = atom("_NET_STARTUP_INFO_BEGIN");
        next_ = atom("_NET_STARTUP_INFO");
    }
    /// The next whole message; empty if none comes.
    std::string message() {
        test::comesTrue([this] { return readPieces(); });
        return std::exchange(text_, {});
    }

  private:
    xcb_atom_t atom(const std::string& name) {
        return link_
            ->reply<xcb_intern_atom_reply_t>(xcb_intern_atom(
                link_->get(), 0, static_cast<std::uint16_t>(name.size()), name.data()))
            ->atom;
    }
    /// True once the zero byte at the end has come.
    bool readPieces() {
        while (const auto event = link_->nextEvent()) {
            if ((event->response_type & 0x7F) != XCB_CLIENT_MESSAGE) continue;
            const auto* const piece =
                reinterpret_cast<const xcb_client_message_event_t*>(event.get());
            if (piece->type != (text_.empty() ? begin_ : next_)) continue;
            EXPECT_EQ(piece->format, 8);
            if (text_.empty()) sender_ = piece->window;
            EXPECT_EQ(piece->window, sender_);
            for (const auto byte : piece->data.data8) {
                if (byte == 0) return true;
                text_ += static_cast<char>(byte);
            }
        }
        return false;
    }

    const std::unique_ptr<X11Link> link_;
    xcb_atom_t begin_ = XCB_ATOM_NONE;
    xcb_atom_t next_ = XCB_ATOM_NONE;
    xcb_window_t sender_ = XCB_WINDOW_NONE;
    std::string text_;
};

TEST(X11StartupNotice, TheDesktopHearsThatTheStartIsOver) {
    const test::PrivateXServer server;
    Desktop desktop(server.display());
    X11StartupNotice::end("gio-4711-host-sonra-0_TIME12345", server.display(), test::patient);
    EXPECT_EQ(desktop.message(), "remove: ID=\"gio-4711-host-sonra-0_TIME12345\"");
}

TEST(X11StartupNotice, AnIdOfAnyLengthAndWithQuotesArrivesWhole) {
    const test::PrivateXServer server;
    Desktop desktop(server.display());
    // The text with its name and quotes fills whole pieces, one byte less, one byte more.
    for (const std::size_t length : {27U, 26U, 28U, 1U, 300U}) {
        const std::string id(length, 'x');
        X11StartupNotice::end(id, server.display(), test::patient);
        ASSERT_EQ(desktop.message(), "remove: ID=\"" + id + "\"");
    }
    X11StartupNotice::end("a\"b\\c d", server.display(), test::patient);
    EXPECT_EQ(desktop.message(), "remove: ID=\"a\\\"b\\\\c d\"");
}

TEST(X11StartupNotice, NothingIsSaidWithoutAnId) {
    const test::PrivateXServer server;
    Desktop desktop(server.display());
    X11StartupNotice::end("", server.display(), test::patient);
    X11StartupNotice::end("second", server.display(), test::patient);
    EXPECT_EQ(desktop.message(), "remove: ID=\"second\"");
}

TEST(X11StartupNotice, AServerThatIsAbsentOrStandsStillHoldsNobodyUp) {
    const test::TimeLimit limit(40);
    X11StartupNotice::end("some", test::nobodysDisplay);
    const test::PrivateXServer server;
    server.signal(SIGSTOP);
    const auto began = std::chrono::steady_clock::now();
    X11StartupNotice::end("some", server.display());
    EXPECT_LT(std::chrono::steady_clock::now() - began, 5s);
    server.signal(SIGCONT);
}

TEST(X11StartupNotice, TheIdIsTakenOutOfTheEnvironment) {
    const test::ScopedEnv announced("DESKTOP_STARTUP_ID", "some");
    EXPECT_EQ(X11StartupNotice::takeFromEnvironment(), "some");
    EXPECT_EQ(X11StartupNotice::takeFromEnvironment(), "");
    EXPECT_EQ(std::getenv("DESKTOP_STARTUP_ID"), nullptr);
}

TEST(X11StartupNotice, AWaylandDesktopsTokenIsTakenOutToo) {
    const test::ScopedEnv announced("XDG_ACTIVATION_TOKEN", "token");
    EXPECT_EQ(X11StartupNotice::takeFromEnvironment(), "");
    EXPECT_EQ(std::getenv("XDG_ACTIVATION_TOKEN"), nullptr);
}

}  // namespace
}  // namespace sonra
