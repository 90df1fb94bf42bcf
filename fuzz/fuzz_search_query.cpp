#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "../tests/search/PlainSearch.h"
#include "MemoryFile.h"
#include "frame/Text.h"
#include "search/FieldScan.h"
#include "search/ParsedQuery.h"
#include "search/Scorer.h"
#include "search/Searcher.h"

namespace {

using namespace sonra;
using fuzz::require;

constexpr double now = 1'760'000'000;

/// The last line is a field, what stands before it a query.
struct Input {
    std::string query;
    std::string field;
};

Input cut(std::string content) {
    const auto feed = content.rfind('\n');
    if (feed == std::string::npos) return {content, content};
    auto field = content.substr(feed + 1);
    content.resize(feed);
    return {std::move(content), std::move(field)};
}

void checkTokens(const ParsedQuery& query) {
    for (const auto* tokens :
         {&query.plain, &query.projectFilters, &query.cwdFilters, &query.sessionFilters})
        for (const auto& token : *tokens) {
            require(!token.empty());
            require(text::isUtf8(token));
            require(token.find_first_of(" \t") == std::string::npos);
        }
}

/// What is found fast is what is found.
void checkScan(const std::string& token, const SessionMeta& meta) {
    constexpr std::size_t prompt = 2;
    const SearchText text(meta);
    const FieldScan scan(token);
    const auto match = Scorer::match(token, meta.firstUserPrompt);
    const int expected = match ? match->score : FieldScan::noMatch;
    require(expected <= scan.highestScore());
    if (!scan.mayMatch(text.masks()[prompt], text.lengths()[prompt])) {
        require(!match);
    } else if (scan.isAscii()) {
        require(scan.scoreBytes(text.padded(), text.lengths()[prompt]) == expected);
    } else {
        require(scan.scoreUnits(text.units()) == expected);
    }
}

/// Parts of the field, so that much of what is asked for is in several.
std::string part(const std::string& field, std::size_t number) {
    const auto start = number * 7919 % (field.size() + 1);
    return field.substr(start, number * 104'729 % (field.size() - start + 1));
}

/// More than are shown, some of one folder and some of one time.
SessionSnapshot several(const std::string& field) {
    constexpr std::size_t count = 24;
    std::vector<SessionMeta> sessions(count);
    for (std::size_t i = 0; i < count; ++i) {
        auto& meta = sessions[i];
        meta.jsonlPath = "/" + std::to_string(i);
        meta.cwd = "/" + part(field, i % 9);
        meta.sessionId = part(field, i + 1);
        meta.firstUserPrompt = i % 5 == 0 ? field : part(field, 3 * i);
        meta.lastAssistantSnippet = part(field, 7 * i);
        meta.mtime = now - static_cast<double>(i * 5 % 7) * 200'000;
    }
    return SessionSnapshot(std::move(sessions));
}

/// The search leaves out what can't be shown; nothing that is shown may be missing for it.
void checkAgainstPlainSearch(const std::string& query, const std::string& field) {
    if (parseQuery(query).empty()) return;
    const auto snapshot = several(field);
    std::set<std::string> attached;
    for (std::size_t i = 0; i < snapshot.size(); i += 4) attached.insert(snapshot[i].sessionId);
    require(test::described(Searcher::search(snapshot, query, attached, now)) ==
            test::described(test::plainSearch(snapshot, query, attached, now)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto [text, field] = cut({reinterpret_cast<const char*>(data), size});
    const auto query = parseQuery(text);
    checkTokens(query);
    SessionMeta meta;
    meta.firstUserPrompt = field;
    for (const auto& token : query.plain) checkScan(token, meta);
    meta.cwd = field;
    meta.sessionId = field;
    meta.lastAssistantSnippet = text;
    const auto hits = Searcher::search(SessionSnapshot({meta}), text, {field}, 0);
    for (const auto& hit : hits)
        if (const auto* session = std::get_if<SessionHit>(&hit))
            require(std::ranges::is_sorted(session->matchedIndices));
    checkAgainstPlainSearch(text, field);
    return 0;
}
