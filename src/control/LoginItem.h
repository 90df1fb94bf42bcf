#pragma once

namespace sonra {

/// True if the program starts when the user logs in: the desktop's autostart entry, or the launch
/// agent that other tools look for, is there. Looks at files only.
bool isLaunchAgentInstalled();

}  // namespace sonra
