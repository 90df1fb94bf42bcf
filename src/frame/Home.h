#pragma once

#include <string>

namespace sonra {

/// The user's home: the environment variable HOME if it is set and not empty, else the account's
/// own. Read anew at each call.
std::string homeDirectory();

/// `$HOME/.claude/tts`, where the shared documents live.
std::string sharedDirectory();

/// XDG_CONFIG_HOME if it names a directory from the root, else `$HOME/.config`.
std::string configurationDirectory();

/// The environment variable's value, empty when it isn't set.
std::string environmentValue(const char* name);

}  // namespace sonra
