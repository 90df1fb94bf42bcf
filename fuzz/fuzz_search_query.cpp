#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <variant>

#include "MemoryFile.h"
#include "frame/Text.h"
#include "search/FieldScan.h"
#include "search/ParsedQuery.h"
#include "search/Scorer.h"
#include "search/Searcher.h"

namespace {

using namespace sonra;
using fuzz::require;

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
    return 0;
}
