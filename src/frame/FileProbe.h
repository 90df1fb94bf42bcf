#pragma once

#include <string>

namespace sonra {

/// True if something stands at `path`, whatever it is; a link that leads nowhere doesn't count.
bool fileExists(const std::string& path);

/// True if `path` is a regular file that this process may execute.
bool isExecutableFile(const std::string& path);

}  // namespace sonra
