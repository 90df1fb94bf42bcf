#pragma once

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace sonra {

/// Replies of the X server are freed with `free`.
struct XcbFree {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename Reply>
using XcbReply = std::unique_ptr<Reply, XcbFree>;

/// Qt's connection to the X server, for what Qt has no words for. Main thread only; borrowed.
namespace XcbConnection {

/// Null on every platform but xcb.
xcb_connection_t* get();
xcb_window_t root();
/// The server is asked once for all that are used, at the first of them; it isn't waited for again.
xcb_atom_t atom(const char* name);

}  // namespace XcbConnection
}  // namespace sonra
