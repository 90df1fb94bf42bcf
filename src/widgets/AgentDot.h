#pragma once

#include <QIcon>
#include <optional>
#include <string_view>

namespace sonra {

/// What a menu row shows of its agent. A value; any thread.
struct AgentDot {
    std::string_view source;
    bool isActive = false;  ///< written a moment ago

    bool operator==(const AgentDot&) const = default;

    /// A dot in the agent's colours, with a green one at its corner while it is active. Menus are
    /// plain text on most desktops: the icon is the one place for colour. GUI thread only.
    [[nodiscard]] QIcon icon() const;
};

struct MenuRow;

/// Absent for a row without an agent.
std::optional<AgentDot> agentDotOf(const MenuRow& row);

}  // namespace sonra
