#pragma once

#include <map>
#include <string>

namespace sonra {

/// Environment variables of a process, by name.
using Environment = std::map<std::string, std::string>;

/// This process's own, as it is now.
Environment ownEnvironment();

}  // namespace sonra
