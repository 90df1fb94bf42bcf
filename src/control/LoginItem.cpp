#include "control/LoginItem.h"

#include <string_view>

#include "frame/AtomicFile.h"
#include "frame/FileProbe.h"
#include "frame/Home.h"
#include "frame/Text.h"

namespace sonra {
namespace {

/// Desktops don't remove an entry that is switched off; they write one of these into it.
bool switchesOff(std::string_view line) {
    const auto equals = line.find('=');
    if (equals == std::string_view::npos) return false;
    const auto key = text::trimmed(line.substr(0, equals));
    const auto value = text::trimmed(line.substr(equals + 1));
    return (key == "Hidden" && value == "true") ||
           (key == "X-GNOME-Autostart-enabled" && value == "false");
}

bool isSwitchedOn(std::string_view entry) {
    while (!entry.empty()) {
        const auto end = entry.find('\n');
        if (switchesOff(entry.substr(0, end))) return false;
        entry.remove_prefix(end == std::string_view::npos ? entry.size() : end + 1);
    }
    return true;
}

}  // namespace

bool isLaunchAgentInstalled() {
    const auto entry =
        AtomicFile::read(configurationDirectory() + "/autostart/dev.trelnivorn.sonra.desktop");
    if (entry) return isSwitchedOn(*entry);
    return fileExists(homeDirectory() + "/Library/LaunchAgents/dev.trelnivorn.sonra.plist");
}

}  // namespace sonra
