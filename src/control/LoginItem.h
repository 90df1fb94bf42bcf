#pragma once

namespace sonra {

/// True if the program starts when the user logs in: the desktop's autostart entry is there and the
/// desktop's own settings haven't switched it off, or there is none but the launch agent that other
/// tools look for. Reads files only.
bool isLaunchAgentInstalled();

}  // namespace sonra
