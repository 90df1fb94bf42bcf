#include "speech/KokoroSpawnPlan.h"

namespace sonra {

KokoroSpawnPlan KokoroSpawnPlan::underUv(const std::optional<std::string>& uv,
                                         const std::string& script) {
    KokoroSpawnPlan plan{
        uv.value_or("/usr/bin/env"), {"run", "--script", script}, ownEnvironment()};
    if (!uv) plan.arguments.insert(plan.arguments.begin(), "uv");
    return plan;
}

}  // namespace sonra
