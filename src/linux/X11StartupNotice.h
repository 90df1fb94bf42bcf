#pragma once

#include <string>

#include "linux/X11Patience.h"

namespace sonra::X11StartupNotice {

/// Tells the desktop that a start which a launcher announced under `id` is over (the
/// freedesktop.org startup notification), so that its busy cursor rests also where no window opens.
/// An empty id announces nothing and nothing is done; so it is without an X server, or with one
/// that doesn't answer in time. An empty display is the environment's. Any thread; takes about a
/// second at most, milliseconds where the server is well.
void end(const std::string& id, const std::string& display = {}, X11Patience patience = {});

/// The id that a launcher left in this process's environment. It is taken out of it, and so is a
/// Wayland desktop's token: a child isn't what was launched. Empty if there is none. Before there
/// are threads.
std::string takeFromEnvironment();

}  // namespace sonra::X11StartupNotice
