#pragma once

#include <string_view>

namespace sonra {

/// Tells the files in which sub-agents of Claude Code write what they say, which isn't meant for
/// the user. No instances; any thread.
struct SubAgentFile {
    /// By the path alone: agent-<id>.jsonl, or any .jsonl file in a folder "subagents".
    static bool isAt(std::string_view path);
};

}  // namespace sonra
