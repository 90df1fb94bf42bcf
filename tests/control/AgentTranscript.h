#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace sonra::test {

/// One way in which an agent writes its transcripts.
struct AgentShape {
    const char* name;
    const char* source;
    const char* place;  ///< below a home
    /// Whether the agent's transcripts can be read from their end, so that the last reply is known.
    bool hasBackwardReader;
    void (*begin)(const std::string& path);
    /// Adds a complete reply, the `number`th.
    void (*add)(const std::string& path, int number, const std::string& text);
    const char* session = "";  ///< behind the path, where a store has many

    friend void PrintTo(const AgentShape& shape, std::ostream* out) { *out << shape.name; }
};

/// All shapes of all agents but Claude Code.
std::vector<AgentShape> agentShapes();

}  // namespace sonra::test
