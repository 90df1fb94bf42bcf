#include "history/HistorySource.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace sonra {
namespace {

struct Row {
    std::string_view rawValue;
    bool hasBackwardReader;
};

/// In the order of the enumeration.
constexpr std::array<Row, 7> rows{{{"claude-code", true},
                                   {"codex", true},
                                   {"gemini", true},
                                   {"opencode", false},
                                   {"aider", true},
                                   {"cline", false},
                                   {"pi", true}}};

const Row& rowOf(HistorySource source) {
    return rows[static_cast<std::size_t>(source)];
}

}  // namespace

std::string_view rawValue(HistorySource source) {
    return rowOf(source).rawValue;
}

std::optional<HistorySource> historySource(std::string_view rawValue) {
    const auto* row = std::ranges::find(rows, rawValue, &Row::rawValue);
    if (row == rows.end()) return std::nullopt;
    return static_cast<HistorySource>(row - rows.begin());
}

bool hasBackwardReader(HistorySource source) {
    return rowOf(source).hasBackwardReader;
}

}  // namespace sonra
