#include "search/SearchRows.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "frame/ForeignTexts.h"
#include "frame/Text.h"
#include "search/FileName.h"
#include "search/LoweredOffsets.h"
#include "search/ParsedQuery.h"
#include "search/RelativeDate.h"
#include "search/SearchText.h"

namespace sonra {
namespace {

using Role = SearchRow::Role;

constexpr std::string_view marker = "● ";
constexpr std::string_view separator = " · ";
constexpr std::size_t idLimit = 8;
constexpr std::size_t wordsLimit = 120;

void append(SearchRow& row, std::string_view text, Role role) {
    row.pieces.push_back({std::string(text), role});
}

bool isOlder(const std::shared_ptr<const SessionMeta>& one,
             const std::shared_ptr<const SessionMeta>& other) {
    return one->mtime < other->mtime;
}

SearchRow projectRow(const ProjectHit& hit, std::string_view expandedProject, double now) {
    SearchRow row;
    row.kind = SearchRow::Kind::project;
    row.isExpanded = !expandedProject.empty() && hit.name == expandedProject;
    std::string age;
    if (!hit.sessions.empty()) {
        const auto& newest = **std::ranges::max_element(hit.sessions, isOlder);
        age = relativeDate(newest.mtime, now);
        row.source = newest.source;
    }
    append(row, hit.name, Role::name);
    append(row,
           std::string(separator) + std::to_string(hit.sessions.size()) + " sessions" +
               std::string(separator) + age,
           Role::detail);
    return row;
}

/// The piece of a row that shows the field, if the row shows it.
std::optional<Role> roleOf(HitField field, const SessionMeta& session) {
    const bool showsPrompt = !session.firstUserPrompt.empty();
    switch (field) {
        case HitField::sessionId:
            return Role::id;
        case HitField::project:
            return Role::folder;
        case HitField::firstUserPrompt:
            return showsPrompt ? std::optional(Role::words) : std::nullopt;
        case HitField::lastSnippet:
            return showsPrompt ? std::nullopt : std::optional(Role::words);
    }
    return std::nullopt;
}

std::string_view textOf(HitField field, const SessionMeta& session) {
    return SearchText::fieldsOf(session)[static_cast<std::size_t>(field)];
}

/// A field may be longer than what is shown of it: what lies behind that isn't highlighted, or
/// other characters than those that matched would be.
void highlight(SearchRow& row, const SessionHit& hit) {
    const auto role = roleOf(hit.field, *hit.session);
    if (!role || hit.matchedIndices.empty()) return;
    const auto places = LoweredOffsets::inText(textOf(hit.field, *hit.session), hit.matchedIndices);
    std::size_t start = 0;
    for (const auto& piece : row.pieces) {
        const auto length = text::utf16Length(piece.text);
        if (piece.role == role)
            for (const auto place : places)
                if (place < length) row.highlights.push_back(start + place);
        start += length;
    }
}

SearchRow sessionRow(const SessionHit& hit, const std::set<std::string>& attachedIds) {
    const auto& session = *hit.session;
    const auto& words =
        session.firstUserPrompt.empty() ? session.lastAssistantSnippet : session.firstUserPrompt;
    SearchRow row;
    row.source = session.source;
    if (attachedIds.contains(session.sessionId)) append(row, marker, Role::marker);
    append(row, text::prefix(session.sessionId, idLimit), Role::id);
    append(row, separator, Role::separator);
    append(row, SearchRows::folderOf(session), Role::folder);
    append(row, separator, Role::separator);
    append(row, text::prefix(words, wordsLimit), Role::words);
    highlight(row, hit);
    return row;
}

bool hasFilters(const std::string& query) {
    const auto parsed = parseQuery(query);
    return !parsed.projectFilters.empty() || !parsed.cwdFilters.empty() ||
           !parsed.sessionFilters.empty();
}

}  // namespace

SearchRow SearchRows::row(const SearchHit& hit, const std::set<std::string>& attachedIds,
                          std::string_view expandedProject, double now) {
    if (const auto* project = std::get_if<ProjectHit>(&hit))
        return projectRow(*project, expandedProject, now);
    return sessionRow(std::get<SessionHit>(hit), attachedIds);
}

std::string SearchRows::footer(const SearchHit* selected) {
    if (!selected) return {};
    return std::holds_alternative<ProjectHit>(*selected) ? "↵ expand · esc dismiss"
                                                         : foreigntexts::searchSessionFooter;
}

std::string SearchRows::emptyState(const std::string& query, bool isSnapshotEmpty) {
    if (!query.empty())
        return "No matches for " + query +
               (hasFilters(query) ? ". Try removing prefixes to widen." : ".");
    return isSnapshotEmpty ? "No Claude sessions found in ~/.claude/projects"
                           : "Recents will appear here. Start typing to search.";
}

std::string SearchRows::scanningStrip(const ReconcileProgress& progress) {
    return "Indexing… (" + std::to_string(progress.done) + " / " + std::to_string(progress.total) +
           ")";
}

std::string SearchRows::folderOf(const SessionMeta& session) {
    return std::string(FileName::lastComponent(session.cwd));
}

}  // namespace sonra
