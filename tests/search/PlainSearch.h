#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "frame/Text.h"
#include "search/FileName.h"
#include "search/ParsedQuery.h"
#include "search/Scorer.h"
#include "search/Searcher.h"

// A search that does what is said of it, word for word and without haste, for the real one to be
// compared with. No state; any thread.
namespace sonra::test {

inline bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct PlainWinner {
    int weight = 0;
    HitField field = HitField::project;
    int value = -1;
    std::vector<int> places;
};

inline PlainWinner plainWinner(const SessionMeta& meta, const std::string& token) {
    const std::string basename = text::lowered(FileName::lastComponent(meta.cwd));
    const std::tuple<HitField, std::string, int> fields[] = {
        {HitField::project, basename, 8},
        {HitField::sessionId, text::lowered(meta.sessionId), 6},
        {HitField::firstUserPrompt, text::lowered(meta.firstUserPrompt), 4},
        {HitField::lastSnippet, text::lowered(meta.lastAssistantSnippet), 3}};
    PlainWinner winner;
    for (const auto& [field, text, weight] : fields) {
        const auto match = Scorer::match(token, text);
        if (match && match->score * weight > winner.value)
            winner = {weight, field, match->score * weight, match->matchedIndices};
    }
    return winner;
}

inline std::optional<SessionHit> plainHit(const SessionSnapshot& snapshot, std::size_t index,
                                          const ParsedQuery& query,
                                          const std::set<std::string>& attached, double now) {
    const auto& meta = snapshot[index];
    const std::string basename = text::lowered(FileName::lastComponent(meta.cwd));
    for (const auto& filter : query.projectFilters)
        if (!holds(basename, filter)) return std::nullopt;
    for (const auto& filter : query.cwdFilters)
        if (!holds(text::lowered(meta.cwd), filter)) return std::nullopt;
    for (const auto& filter : query.sessionFilters)
        if (!holds(text::lowered(meta.sessionId), filter)) return std::nullopt;
    SessionHit hit{snapshot.shared(index), HitField::project, {}, 0};
    int weight = 0;
    for (const auto& token : query.plain) {
        const auto winner = plainWinner(meta, token);
        if (winner.value < 0) return std::nullopt;
        hit.score += winner.value;
        if (winner.weight <= weight) continue;
        weight = winner.weight;
        hit.field = winner.field;
        hit.matchedIndices = winner.places;
    }
    const double age = now - meta.mtime;
    if (age < 86400) {
        hit.score += 3;
    } else if (age < 604800) {
        hit.score += 1;
    }
    if (attached.contains(meta.sessionId)) hit.score += 2;
    return hit;
}

inline std::vector<SearchHit> plainSearch(const SessionSnapshot& snapshot, const std::string& text,
                                          const std::set<std::string>& attached, double now) {
    const auto query = parseQuery(text);
    std::vector<SessionHit> sessions;
    for (std::size_t i = 0; i < snapshot.size(); ++i)
        if (auto hit = plainHit(snapshot, i, query, attached, now))
            sessions.push_back(*std::move(hit));
    std::ranges::stable_sort(sessions, [](const auto& a, const auto& b) {
        return a.score != b.score ? a.score > b.score : a.session->mtime > b.session->mtime;
    });
    std::vector<ProjectHit> projects;
    if (!query.plain.empty()) {
        for (const auto& hit : sessions) {
            const std::string name(FileName::lastComponent(hit.session->cwd));
            auto project = std::ranges::find(projects, name, &ProjectHit::name);
            if (project == projects.end())
                project = projects.insert(projects.end(), ProjectHit{name, {}, 0});
            project->sessions.push_back(hit.session);
            project->score += hit.score;
        }
    }
    std::erase_if(projects, [&](const ProjectHit& project) {
        return std::ranges::none_of(query.plain, [&](const auto& token) {
            return holds(text::lowered(project.name), token);
        });
    });
    std::ranges::stable_sort(projects,
                             [](const auto& a, const auto& b) { return a.score > b.score; });
    std::vector<SearchHit> hits(
        projects.begin(),
        projects.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(5, projects.size())));
    hits.insert(
        hits.end(), sessions.begin(),
        sessions.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(8, sessions.size())));
    return hits;
}

inline std::string described(const SearchHit& hit) {
    std::string text;
    if (const auto* project = std::get_if<ProjectHit>(&hit)) {
        text = "project " + project->name + " " + std::to_string(project->score);
        for (const auto& meta : project->sessions) text += " " + meta->jsonlPath;
    } else {
        const auto& session = std::get<SessionHit>(hit);
        text = "session " + session.session->jsonlPath + " " +
               std::string(rawValue(session.field)) + " " + std::to_string(session.score);
        for (const int place : session.matchedIndices) text += " " + std::to_string(place);
    }
    return text;
}

inline std::vector<std::string> described(const std::vector<SearchHit>& hits) {
    std::vector<std::string> all;
    for (const auto& hit : hits) all.push_back(described(hit));
    return all;
}

}  // namespace sonra::test
