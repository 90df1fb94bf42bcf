// The search beside one that does what is said of it, word for word and without haste.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "frame/Text.h"
#include "search/FieldScan.h"
#include "search/FileName.h"
#include "search/ParsedQuery.h"
#include "search/Scorer.h"
#include "search/Searcher.h"

namespace sonra {
namespace {

constexpr double now = 1'760'000'000;

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

struct PlainWinner {
    int weight = 0;
    HitField field = HitField::project;
    int value = -1;
    std::vector<int> places;
};

PlainWinner plainWinner(const SessionMeta& meta, const std::string& token) {
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

std::optional<SessionHit> plainHit(const SessionSnapshot& snapshot, std::size_t index,
                                   const ParsedQuery& query,
                                   const std::set<std::string>& attached) {
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

std::vector<SearchHit> plainSearch(const SessionSnapshot& snapshot, const std::string& text,
                                   const std::set<std::string>& attached) {
    const auto query = parseQuery(text);
    std::vector<SessionHit> sessions;
    for (std::size_t i = 0; i < snapshot.size(); ++i)
        if (auto hit = plainHit(snapshot, i, query, attached)) sessions.push_back(*std::move(hit));
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

std::string described(const SearchHit& hit) {
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

std::vector<std::string> described(const std::vector<SearchHit>& hits) {
    std::vector<std::string> all;
    for (const auto& hit : hits) all.push_back(described(hit));
    return all;
}

/// Random sessions and queries from few characters, so that much of it matches.
class Generator {
  public:
    explicit Generator(unsigned seed) : random_(seed) {}

    std::string text(std::size_t longest) {
        static const std::vector<std::string> pieces{"a",
                                                     "b",
                                                     "a",
                                                     "b",
                                                     "t",
                                                     "t",
                                                     "s",
                                                     "T",
                                                     "-",
                                                     "_",
                                                     "/",
                                                     ".",
                                                     " ",
                                                     "\t",
                                                     ":",
                                                     "1",
                                                     "\xC3\xA4",
                                                     "\xC3\x84",
                                                     "\xC4\xB0",
                                                     "\xE2\x80\x94",
                                                     "\xF0\x9F\x98\x80",
                                                     "\xCE\xA3",
                                                     "\xE2\x84\xAA",
                                                     "k",
                                                     "ab",
                                                     "tts"};
        std::string result;
        // Most sessions are ASCII only, and take another path.
        const auto kinds = below(2) == 0 ? 16 : pieces.size();
        for (auto length = below(longest); length > 0; --length) result += pieces[below(kinds)];
        return result;
    }
    SessionSnapshot snapshot() {
        std::vector<SessionMeta> sessions(below(40));
        for (auto& meta : sessions) {
            meta.sessionId = text(8);
            meta.cwd = "/" + text(6);
            meta.firstUserPrompt = text(below(5) == 0 ? 300 : 30);
            meta.lastAssistantSnippet = text(below(5) == 0 ? 300 : 30);
            meta.mtime = now - static_cast<double>(below(5)) * 200'000;
            meta.jsonlPath = "/" + std::to_string(serial_++);
        }
        if (below(2) == 0) std::ranges::stable_sort(sessions, std::greater(), &SessionMeta::mtime);
        return SessionSnapshot(std::move(sessions));
    }
    std::string query() {
        std::string result = text(7);
        if (below(4) == 0) result += " " + text(4);
        if (below(6) == 0) result += " project:" + text(2);
        if (below(6) == 0) result += " cwd:" + text(3);
        if (below(6) == 0) result += " session:" + text(2);
        return result;
    }
    std::size_t below(std::size_t limit) { return random_() % limit; }

  private:
    std::mt19937 random_;
    int serial_ = 0;
};

TEST(PlainSearch, GivesTheSame) {
    Generator generator(11);
    std::size_t found = 0;
    for (int round = 0; round < 3000; ++round) {
        const auto snapshot = generator.snapshot();
        const auto query = generator.query();
        if (parseQuery(query).empty()) continue;
        std::set<std::string> attached;
        for (const auto& meta : snapshot)
            if (generator.below(4) == 0) attached.insert(meta.sessionId);
        const auto hits = described(Searcher::search(snapshot, query, attached, now));
        ASSERT_EQ(hits, described(plainSearch(snapshot, query, attached))) << query;
        found += hits.size();
    }
    EXPECT_GT(found, 3000U);
}

TEST(PlainSearch, ScoresEachFieldTheSameAndNeverMoreThanWasSaid) {
    Generator generator(12);
    std::size_t matches = 0;
    for (int round = 0; round < 20'000; ++round) {
        SessionMeta meta;
        meta.firstUserPrompt = generator.text(generator.below(4) == 0 ? 400 : 20);
        const auto token = text::lowered(generator.text(5));
        if (token.empty()) continue;
        const SearchText text(meta);
        const FieldScan scan(token);
        const std::size_t field = 2;
        const auto plain = Scorer::match(token, meta.firstUserPrompt);
        const int expected = plain ? plain->score : FieldScan::noMatch;
        ASSERT_LE(expected, scan.highestScore());
        if (!scan.mayMatch(text.masks()[field], text.lengths()[field])) {
            ASSERT_FALSE(plain);
        } else if (scan.isAscii()) {
            ASSERT_EQ(scan.scoreBytes(text.padded(), text.lengths()[field]), expected)
                << token << " in " << meta.firstUserPrompt;
        } else {
            ASSERT_EQ(scan.scoreUnits(text.units()), expected);
        }
        matches += plain ? 1 : 0;
    }
    EXPECT_GT(matches, 2000U);
}

}  // namespace
}  // namespace sonra
