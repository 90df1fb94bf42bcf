#pragma once

#include <optional>
#include <string>
#include <vector>

#include "frame/Environment.h"

namespace sonra {

/// A process that an engine is about to start, settled before anything happens.
struct KokoroSpawnPlan {
    std::string executablePath;
    std::vector<std::string> arguments;
    Environment environment;

    /// Runs a Python script under `uv`, looked up on PATH if its place isn't known. In this
    /// process's environment.
    static KokoroSpawnPlan underUv(const std::optional<std::string>& uv, const std::string& script);

    bool operator==(const KokoroSpawnPlan&) const = default;
};

}  // namespace sonra
