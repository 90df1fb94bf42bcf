#pragma once

#include <string>
#include <vector>

namespace sonra {

/// The addresses ("tts://…") that a command line consists of, the program's name aside; empty for
/// any other command line, which `parseMode` reads. Nothing else about them is looked at.
std::vector<std::string> launchUrls(const std::vector<std::string>& args);

/// Asks a service at the default socket to open the addresses, with the command "open"; true if one
/// has them. If not, there is none, and the caller is to become it and to open them itself. Takes
/// at most about two seconds.
bool tryOpenInExistingService(const std::vector<std::string>& urls);

}  // namespace sonra
