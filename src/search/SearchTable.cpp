#include "search/SearchTable.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <unordered_map>

#include "frame/Text.h"
#include "search/FileName.h"
#include "search/SessionEntry.h"

namespace sonra {
namespace {

constexpr std::size_t bitMask = 63;

std::uint8_t idBitNumber(std::string_view sessionId) {
    return static_cast<std::uint8_t>(std::hash<std::string_view>()(sessionId) & bitMask);
}

}  // namespace

std::uint64_t SearchTable::idBit(std::string_view sessionId) {
    return std::uint64_t{1} << idBitNumber(sessionId);
}

SearchTable::SearchTable(const SessionSnapshot::Entries& entries) {
    sortByTime(entries);
    rows_.reserve(entries.size());
    idBits_.reserve(entries.size());
    for (const auto session : sessions_) {
        const auto& [meta, text] = *entries[session];
        rows_.push_back({text.bytes(), meta.mtime, text.masks(), text.lengths()});
        idBits_.push_back(idBitNumber(meta.sessionId));
    }
    groupByProject(entries);
}

void SearchTable::sortByTime(const SessionSnapshot::Entries& entries) {
    sessions_.resize(entries.size());
    std::iota(sessions_.begin(), sessions_.end(), 0U);
    const auto newer = [&](std::uint32_t a, std::uint32_t b) {
        return entries[a]->meta.mtime > entries[b]->meta.mtime;
    };
    if (!std::ranges::is_sorted(sessions_, newer)) std::ranges::stable_sort(sessions_, newer);
}

void SearchTable::groupByProject(const SessionSnapshot::Entries& entries) {
    std::unordered_map<std::string_view, std::uint32_t> known;
    projectOf_.reserve(sessions_.size());
    for (const auto session : sessions_) {
        const auto name = FileName::lastComponent(entries[session]->meta.cwd);
        const auto [at, isNew] = known.emplace(name, static_cast<std::uint32_t>(projects_.size()));
        if (isNew) projects_.push_back({name, text::lowered(name)});
        projectOf_.push_back(at->second);
    }
}

}  // namespace sonra
