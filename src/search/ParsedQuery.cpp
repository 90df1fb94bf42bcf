#include "search/ParsedQuery.h"

#include <utility>

#include "frame/Text.h"

namespace sonra {
namespace {

void add(ParsedQuery& query, std::string token) {
    const auto colon = token.find(':');
    if (colon != std::string::npos && colon + 1 < token.size()) {
        const auto key = std::string_view(token).substr(0, colon);
        auto value = token.substr(colon + 1);
        if (key == "project") return query.projectFilters.push_back(std::move(value));
        if (key == "cwd") return query.cwdFilters.push_back(std::move(value));
        if (key == "session") return query.sessionFilters.push_back(std::move(value));
    }
    query.plain.push_back(std::move(token));
}

}  // namespace

ParsedQuery parseQuery(std::string_view text) {
    constexpr std::string_view separators = " \t";
    ParsedQuery query;
    text = text::trimmed(text);
    while (!text.empty()) {
        const auto end = std::min(text.find_first_of(separators), text.size());
        if (end > 0) add(query, text::lowered(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return query;
}

}  // namespace sonra
