#include "search/Catalogue.h"

#include <algorithm>
#include <utility>

namespace sonra {
namespace {

bool comesFirst(const Catalogue::Entry& a, const Catalogue::Entry& b) {
    if (a->mtime != b->mtime) return a->mtime > b->mtime;
    return a->jsonlPath < b->jsonlPath;
}

}  // namespace

void Catalogue::forgetId(const SessionMeta& entry) {
    const auto found = byId_.find(entry.sessionId);
    if (found == byId_.end()) return;
    std::erase_if(found->second, [&](const Entry& other) { return other.get() == &entry; });
    if (found->second.empty()) byId_.erase(found);
}

void Catalogue::publish(Entry entry) {
    auto& place = byPath_[entry->jsonlPath];
    if (place.entry) forgetId(*place.entry);
    byId_[entry->sessionId].push_back(entry);
    place = {std::move(entry), ++published_};
    snapshot_.reset();
}

bool Catalogue::remove(const std::string& path) {
    const auto found = byPath_.find(path);
    if (found == byPath_.end()) return false;
    forgetId(*found->second.entry);
    byPath_.erase(found);
    snapshot_.reset();
    return true;
}

Catalogue::Difference Catalogue::adopt(const std::unordered_map<std::string, StatAttr>& walked,
                                       Moment walkBegan) {
    std::vector<std::string> gone;
    for (const auto& [path, place] : byPath_)
        if (place.published <= walkBegan && !walked.contains(path)) gone.push_back(path);
    for (const auto& path : gone) remove(path);
    Difference difference{{}, !gone.empty()};
    for (const auto& [path, attributes] : walked) {
        const auto known = byPath_.find(path);
        if (known == byPath_.end() ||
            StatAttr{known->second.entry->mtime, known->second.entry->bytes} != attributes)
            difference.toRead.push_back(path);
    }
    return difference;
}

Catalogue::Entry Catalogue::withId(const std::string& sessionId) const {
    const auto found = byId_.find(sessionId);
    return found == byId_.end() ? nullptr : *std::ranges::min_element(found->second, comesFirst);
}

const SessionSnapshot& Catalogue::snapshot() {
    if (!snapshot_) {
        SessionSnapshot::Entries entries;
        entries.reserve(byPath_.size());
        for (const auto& [path, place] : byPath_) entries.push_back(place.entry);
        std::ranges::sort(entries, comesFirst);
        snapshot_.emplace(std::move(entries));
    }
    return *snapshot_;
}

}  // namespace sonra
