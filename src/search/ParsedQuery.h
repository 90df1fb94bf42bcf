#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sonra {

/// What a query asks for; every token in lower case.
struct ParsedQuery {
    std::vector<std::string> plain;  ///< each must be found in one of a session's fields
    std::vector<std::string> projectFilters;
    std::vector<std::string> cwdFilters;
    std::vector<std::string> sessionFilters;

    /// Asks for nothing at all.
    [[nodiscard]] bool empty() const {
        return plain.empty() && projectFilters.empty() && cwdFilters.empty() &&
               sessionFilters.empty();
    }
    bool operator==(const ParsedQuery&) const = default;
};

/// Cuts at blanks and tabs; "project:", "cwd:" and "session:" make filters of what follows them,
/// any other colon is part of its token. Any thread.
ParsedQuery parseQuery(std::string_view text);

}  // namespace sonra
