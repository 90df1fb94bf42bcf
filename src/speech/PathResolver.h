#pragma once

#include <functional>
#include <optional>
#include <string>

namespace sonra {

/// Finds a program, absent if it isn't installed. Looks at files only; called from any thread.
using PathResolver = std::function<std::optional<std::string>()>;

/// Finds a script, or throws ScriptResolverError. Looks at files only; called from any thread.
using ScriptLocator = std::function<std::string()>;

}  // namespace sonra
