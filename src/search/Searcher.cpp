#include "search/Searcher.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <numeric>
#include <optional>

#include "frame/Text.h"
#include "search/FieldScan.h"
#include "search/ParsedQuery.h"
#include "search/Scorer.h"
#include "search/SearchTable.h"

namespace sonra {
namespace {

constexpr double daySeconds = 86400;
constexpr double weekSeconds = 604800;

constexpr int noFloor = -1;  // every score is above it

/// In HitField's order.
constexpr std::array<int, SearchText::fieldCount> fieldWeights{
    Searcher::fieldWeightProject, Searcher::fieldWeightSessionId, Searcher::fieldWeightFirstPrompt,
    Searcher::fieldWeightLastSnippet};

/// A row that matches. Rows stand in the order of time, so of equal scores the lower row is first.
struct Found {
    std::uint32_t row = 0;
    int score = 0;
};

bool isBetter(const Found& a, const Found& b) {
    return a.score != b.score ? a.score > b.score : a.row < b.row;
}

/// What a folder's sessions come to.
struct ProjectSum {
    std::uint32_t project = 0;
    int score = 0;
    Found best;
};

double secondsSince1970() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

bool holds(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

bool holdsAll(std::string_view text, const std::vector<std::string>& parts) {
    return std::ranges::all_of(parts, [&](const auto& part) { return holds(text, part); });
}

std::vector<SearchHit> recents(const SessionSnapshot& snapshot,
                               const std::set<std::string>& attachedIds) {
    std::vector<SearchHit> hits;
    for (const bool attached : {true, false})
        for (std::size_t i = 0; i < snapshot.size() && hits.size() < Searcher::maxSessions; ++i)
            if (!snapshot[i].isOfSubAgent() &&
                attachedIds.contains(snapshot[i].sessionId) == attached)
                hits.emplace_back(SessionHit{snapshot.shared(i), HitField::project, {}, 0});
    return hits;
}

/// One search. Most sessions don't match and most of what matches isn't shown: only a score is made
/// of each session, the rest of the few that are shown.
class Search {
  public:
    Search(const SessionSnapshot& snapshot, const ParsedQuery& query,
           const std::set<std::string>& attachedIds, double now)
        : snapshot_(snapshot),
          table_(snapshot.table()),
          query_(query),
          attachedIds_(attachedIds),
          now_(now),
          tokens_(query.plain.begin(), query.plain.end()) {
        for (const auto& id : attachedIds) attachedBits_ |= SearchTable::idBit(id);
        isNamed_.reserve(table_.projects().size());
        for (const auto& project : table_.projects())
            isNamed_.push_back(isNamedIn(project.lowered) ? 1 : 0);
    }

    std::vector<SearchHit> run();

  private:
    [[nodiscard]] const SessionMeta& session(std::uint32_t row) const {
        return snapshot_[table_.sessionOf(row)];
    }
    [[nodiscard]] bool isNamedIn(std::string_view folder) const {
        return std::ranges::any_of(query_.plain,
                                   [&](const auto& token) { return holds(folder, token); });
    }
    [[nodiscard]] bool passesFilters(std::uint32_t row) const;
    [[nodiscard]] std::optional<int> tokenScore(const SearchTable::Row& row, std::uint32_t number,
                                                const FieldScan& token) const;
    [[nodiscard]] static std::optional<int> highestScore(const SearchTable::Row& row,
                                                         const FieldScan& token);
    [[nodiscard]] std::optional<int> score(std::uint32_t number, int floor) const;
    [[nodiscard]] int bonus(std::uint32_t row) const;
    void findAll();
    [[nodiscard]] std::vector<ProjectSum> bestProjects() const;
    void addProjects(std::vector<SearchHit>& hits) const;
    void addSessions(std::vector<SearchHit>& hits) const;
    [[nodiscard]] SessionHit sessionHit(const Found& found) const;

    const SessionSnapshot& snapshot_;
    const SearchTable& table_;
    const ParsedQuery& query_;
    const std::set<std::string>& attachedIds_;
    const double now_;
    const std::vector<FieldScan> tokens_;
    std::uint64_t attachedBits_ = 0;
    std::vector<char> isNamed_;  // by project: the query holds a part of its name
    std::vector<Found> found_;   // all that can be shown, in the order of rows
};

bool Search::passesFilters(std::uint32_t row) const {
    if (!query_.projectFilters.empty() &&
        !holdsAll(table_.projects()[table_.projectOf(row)].lowered, query_.projectFilters))
        return false;
    if (!query_.cwdFilters.empty() && !holdsAll(text::lowered(session(row).cwd), query_.cwdFilters))
        return false;
    return query_.sessionFilters.empty() ||
           holdsAll(text::lowered(session(row).sessionId), query_.sessionFilters);
}

/// The greatest product of score and weight. A field that couldn't be better than what was found
/// isn't looked at.
std::optional<int> Search::tokenScore(const SearchTable::Row& row, std::uint32_t number,
                                      const FieldScan& token) const {
    int best = FieldScan::noMatch;
    const unsigned char* field = row.text;
    for (std::size_t i = 0; i < SearchText::fieldCount; field += row.lengths[i++]) {
        const int weight = fieldWeights[i];
        if (!token.mayMatch(row.masks[i], row.lengths[i]) || token.highestScore() * weight <= best)
            continue;
        const int score = token.isAscii() ? token.scoreBytes(field, row.lengths[i])
                                          : token.scoreUnits(table_.units(number, i));
        best = std::max(best, score * weight);
    }
    return best < 0 ? std::nullopt : std::optional(best);
}

int Search::bonus(std::uint32_t row) const {
    int bonus = 0;
    const double age = now_ - table_.rows()[row].mtime;
    if (age < daySeconds) {
        bonus = Searcher::recencyDayBonus;
    } else if (age < weekSeconds) {
        bonus = Searcher::recencyWeekBonus;
    }
    if ((attachedBits_ & table_.idBit(row)) != 0 && attachedIds_.contains(session(row).sessionId))
        bonus += Searcher::attachedBonus;
    return bonus;
}

/// What the token can come to in this row; nothing if no field can hold it.
std::optional<int> Search::highestScore(const SearchTable::Row& row, const FieldScan& token) {
    for (std::size_t i = 0; i < SearchText::fieldCount; ++i)
        if (token.mayMatch(row.masks[i], row.lengths[i]))
            return token.highestScore() * fieldWeights[i];
    return std::nullopt;
}

/// Begins with what is possible and ends with what is. Nothing if that isn't above `floor`.
std::optional<int> Search::score(std::uint32_t number, int floor) const {
    if (!passesFilters(number)) return std::nullopt;
    const auto& row = table_.rows()[number];
    int score = bonus(number);
    for (const auto& token : tokens_) {
        const auto highest = highestScore(row, token);
        if (!highest) return std::nullopt;
        score += *highest;
    }
    for (const auto& token : tokens_) {
        if (score <= floor) return std::nullopt;
        const auto best = tokenScore(row, number, token);
        if (!best) return std::nullopt;
        score += *best - *highestScore(row, token);
    }
    return score > floor ? std::optional(score) : std::nullopt;
}

/// A session that neither belongs to a folder that will be shown nor is better than the worst of
/// the sessions that will be shown makes no difference. Equal ones come behind, being older.
void Search::findAll() {
    std::vector<int> shown;  // their scores, a heap with the worst on top
    const auto count = static_cast<std::uint32_t>(table_.rows().size());
    for (std::uint32_t row = 0; row < count; ++row) {
        const bool belongsToNamed = isNamed_[table_.projectOf(row)];
        const int floor = shown.size() < Searcher::maxSessions ? noFloor : shown.front();
        const auto sum = score(row, belongsToNamed ? noFloor : floor);
        if (!sum) continue;
        found_.push_back({row, *sum});
        if (*sum <= floor) continue;
        if (floor != noFloor) {
            std::ranges::pop_heap(shown, std::greater());
            shown.pop_back();
        }
        shown.push_back(*sum);
        std::ranges::push_heap(shown, std::greater());
    }
}

/// Of equal scores the one whose best session is better.
std::vector<ProjectSum> Search::bestProjects() const {
    std::vector<ProjectSum> sums(table_.projects().size());
    for (const auto& found : found_) {
        auto& sum = sums[table_.projectOf(found.row)];
        if (sum.score == 0 || isBetter(found, sum.best)) sum.best = found;
        sum.score += found.score;
    }
    for (std::uint32_t i = 0; i < sums.size(); ++i) sums[i].project = i;
    std::erase_if(sums,
                  [&](const ProjectSum& sum) { return sum.score == 0 || !isNamed_[sum.project]; });
    std::ranges::sort(sums, [](const ProjectSum& a, const ProjectSum& b) {
        return a.score != b.score ? a.score > b.score : isBetter(a.best, b.best);
    });
    sums.resize(std::min(sums.size(), Searcher::maxProjects));
    return sums;
}

void Search::addProjects(std::vector<SearchHit>& hits) const {
    if (query_.plain.empty()) return;
    for (const auto& sum : bestProjects()) {
        std::vector<Found> members;
        for (const auto& found : found_)
            if (table_.projectOf(found.row) == sum.project) members.push_back(found);
        std::ranges::sort(members, isBetter);
        ProjectHit hit{std::string(table_.projects()[sum.project].name), {}, sum.score};
        hit.sessions.reserve(members.size());
        for (const auto& member : members)
            hit.sessions.push_back(snapshot_.shared(table_.sessionOf(member.row)));
        hits.emplace_back(std::move(hit));
    }
}

void Search::addSessions(std::vector<SearchHit>& hits) const {
    std::vector<Found> best(std::min(found_.size(), Searcher::maxSessions));
    std::ranges::partial_sort_copy(found_, best, isBetter);
    for (const auto& found : best) hits.emplace_back(sessionHit(found));
}

/// The field and the places come from the token that was found in the weightiest field.
SessionHit Search::sessionHit(const Found& found) const {
    const auto& meta = session(found.row);
    const auto fields = SearchText::fieldsOf(meta);
    SessionHit hit{
        snapshot_.shared(table_.sessionOf(found.row)), HitField::project, {}, found.score};
    int greatestWeight = 0;
    for (const auto& token : query_.plain) {
        int best = FieldScan::noMatch;
        std::size_t bestField = 0;
        std::vector<int> places;
        for (std::size_t i = 0; i < fields.size(); ++i) {
            auto match = Scorer::match(token, fields[i]);
            if (!match || match->score * fieldWeights[i] <= best) continue;
            best = match->score * fieldWeights[i];
            bestField = i;
            places = std::move(match->matchedIndices);
        }
        if (fieldWeights[bestField] <= greatestWeight) continue;
        greatestWeight = fieldWeights[bestField];
        hit.field = static_cast<HitField>(bestField);
        hit.matchedIndices = std::move(places);
    }
    return hit;
}

std::vector<SearchHit> Search::run() {
    findAll();
    std::vector<SearchHit> hits;
    addProjects(hits);
    addSessions(hits);
    return hits;
}

}  // namespace

std::vector<SearchHit> Searcher::search(const SessionSnapshot& snapshot, std::string_view query,
                                        const std::set<std::string>& attachedIds) {
    return search(snapshot, query, attachedIds, secondsSince1970());
}

std::vector<SearchHit> Searcher::search(const SessionSnapshot& snapshot, std::string_view query,
                                        const std::set<std::string>& attachedIds, double now) {
    const auto parsed = parseQuery(query);
    return parsed.empty() ? recents(snapshot, attachedIds)
                          : Search(snapshot, parsed, attachedIds, now).run();
}

}  // namespace sonra
