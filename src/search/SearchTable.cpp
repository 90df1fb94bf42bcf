#include "search/SearchTable.h"

#include <algorithm>
#include <functional>
#include <numeric>
#include <unordered_map>

#include "frame/Text.h"
#include "search/FileName.h"

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
    readTexts(entries);
    idBits_.reserve(entries.size());
    for (const auto session : sessions_)
        idBits_.push_back(idBitNumber(entries[session]->sessionId));
    groupByProject(entries);
}

void SearchTable::readTexts(const SessionSnapshot::Entries& entries) {
    std::size_t size = SearchText::padding;
    for (const auto session : sessions_)
        for (const auto field : SearchText::fieldsOf(*entries[session])) size += field.size();
    bytes_.reserve(size);
    rows_.reserve(entries.size());
    unitsAt_.reserve(entries.size());
    for (const auto session : sessions_) addText(*entries[session]);
    bytes_.resize(bytes_.size() + SearchText::padding);
    bytes_.shrink_to_fit();
    units_.shrink_to_fit();
    // The texts move for the last time above.
    const unsigned char* text = bytes_.data();
    for (auto& row : rows_) {
        row.text = text;
        text = std::accumulate(row.lengths.begin(), row.lengths.end(), text);
    }
}

void SearchTable::addText(const SessionMeta& meta) {
    const SearchText text(meta);
    const auto bytes = text.bytes();
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    unitsAt_.push_back(text.units().empty() ? std::u16string::npos : units_.size());
    units_ += text.units();
    rows_.push_back({nullptr, meta.mtime, text.masks(), text.lengths()});
}

std::u16string_view SearchTable::units(std::size_t row, std::size_t field) const {
    if (unitsAt_[row] == std::u16string::npos) return {};
    const auto& lengths = rows_[row].lengths;
    const auto start = std::accumulate(lengths.begin(), lengths.begin() + field, unitsAt_[row]);
    return std::u16string_view(units_).substr(start, lengths[field]);
}

void SearchTable::sortByTime(const SessionSnapshot::Entries& entries) {
    sessions_.reserve(entries.size());
    for (std::uint32_t i = 0; i < entries.size(); ++i)
        if (!entries[i]->isOfSubAgent()) sessions_.push_back(i);
    const auto newer = [&](std::uint32_t a, std::uint32_t b) {
        return entries[a]->mtime > entries[b]->mtime;
    };
    if (!std::ranges::is_sorted(sessions_, newer)) std::ranges::stable_sort(sessions_, newer);
}

void SearchTable::groupByProject(const SessionSnapshot::Entries& entries) {
    std::unordered_map<std::string_view, std::uint32_t> known;
    projectOf_.reserve(sessions_.size());
    for (const auto session : sessions_) {
        const auto name = FileName::lastComponent(entries[session]->cwd);
        const auto [at, isNew] = known.emplace(name, static_cast<std::uint32_t>(projects_.size()));
        if (isNew) projects_.push_back({name, text::lowered(name)});
        projectOf_.push_back(at->second);
    }
}

}  // namespace sonra
