#pragma once

#include <string>

namespace sonra {

/// Where this process keeps its temporary files: a directory of its own (mode 0700) below TMPDIR,
/// else /tmp, made on first use. Any thread. Empty if no directory can be made; whatever is written
/// there then fails by itself.
std::string temporaryDirectory();

/// Removes the directory and everything in it, at the end of the process.
void removeTemporaryDirectory();

/// Removes directories of this user's processes that have died without doing so.
void sweepTemporaryDirectories();

}  // namespace sonra
