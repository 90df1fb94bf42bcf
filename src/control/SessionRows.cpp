#include "control/SessionRows.h"

#include <algorithm>

namespace sonra {
namespace {

constexpr auto sourceOfOldRows = "claude-code";

std::string textAt(const Json& row, std::string_view key, std::string fallback = {}) {
    return json::stringAt(row, key).value_or(std::move(fallback));
}

std::optional<AttachedSession> attachedFrom(const Json& row) {
    const auto id = json::stringAt(row, "id");
    const auto cwd = json::stringAt(row, "cwd");
    if (!id || !cwd) return std::nullopt;
    return AttachedSession{*id, *cwd, textAt(row, "source", sourceOfOldRows), textAt(row, "branch"),
                           textAt(row, "transcript")};
}

std::optional<DiscoveredRow> discoveredFrom(const Json& row) {
    auto id = json::stringAt(row, "sessionId");
    if (!id) id = json::stringAt(row, "id");
    if (!id) return std::nullopt;
    return DiscoveredRow{*id,
                         textAt(row, "cwd"),
                         textAt(row, "lastText"),
                         textAt(row, "source", sourceOfOldRows),
                         textAt(row, "transcript"),
                         json::doubleAt(row, "mtimeMs").value_or(0),
                         json::boolAt(row, "active").value_or(false),
                         textAt(row, "title"),
                         textAt(row, "branch")};
}

template <typename Row, typename Read>
std::vector<Row> rowsAt(const Json& document, std::string_view key, Read read) {
    std::vector<Row> rows;
    const Json* list = json::find(document, key);
    if (list == nullptr || !list->is_array()) return rows;
    for (const auto& element : *list)
        if (auto row = read(element)) rows.push_back(std::move(*row));
    return rows;
}

std::string leadingSourceOf(const Json& document) {
    const auto named = [](const Json& row) -> std::optional<std::string> {
        auto source = json::stringAt(row, "source");
        return source && !source->empty() ? source : std::nullopt;
    };
    for (const auto* key : {"sessions", "discoveredSessions"})
        if (auto sources = rowsAt<std::string>(document, key, named); !sources.empty())
            return std::move(sources.front());
    return {};
}

}  // namespace

SessionRows SessionRows::from(const Json& document) {
    return {rowsAt<AttachedSession>(document, "sessions", attachedFrom),
            rowsAt<DiscoveredRow>(document, "discoveredSessions", discoveredFrom),
            leadingSourceOf(document)};
}

std::set<std::string> SessionRows::attachedIds() const {
    std::set<std::string> ids;
    for (const auto& session : attached) ids.insert(session.id);
    return ids;
}

std::optional<DiscoveredRow> SessionRows::soleAutoAttachCandidate(
    const std::vector<AttachedSession>& attached, const std::vector<DiscoveredRow>& discovered,
    double nowMs) {
    if (!attached.empty()) return std::nullopt;
    const auto isFresh = [nowMs](const DiscoveredRow& row) {
        return row.source == sourceOfOldRows && nowMs - row.mtimeMs <= freshForMs;
    };
    const auto first = std::find_if(discovered.begin(), discovered.end(), isFresh);
    if (first == discovered.end() || std::any_of(first + 1, discovered.end(), isFresh))
        return std::nullopt;
    return *first;
}

bool SessionRows::shouldLatchStateLevelDetach(const std::set<std::string>& previous,
                                              const std::set<std::string>& current) {
    return !std::includes(current.begin(), current.end(), previous.begin(), previous.end());
}

std::string SessionRows::sanitizeCwd(const std::string& cwd) {
    std::string name = cwd.starts_with('/') ? cwd.substr(1) : cwd;
    std::replace(name.begin(), name.end(), '/', '-');
    return "-" + name;
}

}  // namespace sonra
