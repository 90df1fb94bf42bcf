#include "frame/SubAgentFile.h"

namespace sonra {

bool SubAgentFile::isAt(std::string_view path) {
    if (!path.ends_with(".jsonl")) return false;
    const auto name = path.rfind('/') + 1;  // 0 without a slash
    if (path.substr(name).starts_with("agent-")) return true;
    const auto folder = path.substr(0, name);
    return folder == "subagents/" || folder.ends_with("/subagents/");
}

}  // namespace sonra
