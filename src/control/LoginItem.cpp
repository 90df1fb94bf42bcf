#include "control/LoginItem.h"

#include "frame/FileProbe.h"
#include "frame/Home.h"

namespace sonra {

bool isLaunchAgentInstalled() {
    return fileExists(configurationDirectory() + "/autostart/dev.trelnivorn.sonra.desktop") ||
           fileExists(homeDirectory() + "/Library/LaunchAgents/dev.trelnivorn.sonra.plist");
}

}  // namespace sonra
