#pragma once

#include <chrono>
#include <string>

namespace sonra {

/// Whether a D-Bus bus at `address` would serve this process. Any thread; blocks for `limit` at
/// most, for a millisecond where a bus is well.
///
/// D-Bus libraries wait without end for a bus that takes connections and never answers. So it is
/// asked for its consent before they are let near it. An address of a kind that can't be asked
/// here, such as a remote one, passes.
bool busAnswers(const std::string& address, std::chrono::milliseconds limit);

/// The session bus as the environment names it: its variable, else the socket in the runtime
/// directory; empty if there is neither.
std::string sessionBusAddress();

}  // namespace sonra
