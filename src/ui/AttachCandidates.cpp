#include "ui/AttachCandidates.h"

#include <algorithm>
#include <map>

namespace sonra::menu {
namespace {

void fillFrom(DiscoveredRow& row, const DiscoveredRow& later) {
    const auto fill = [](std::string& text, const std::string& other) {
        if (text.empty()) text = other;
    };
    fill(row.lastText, later.lastText);
    fill(row.title, later.title);
    fill(row.branch, later.branch);
    row.mtimeMs = std::max(row.mtimeMs, later.mtimeMs);
}

}  // namespace

std::vector<DiscoveredRow> mergedAttachCandidates(const std::vector<DiscoveredRow>& discovered,
                                                  const std::vector<DiscoveredRow>& recent,
                                                  const std::vector<AttachedSession>& attached) {
    std::set<std::string_view> taken;
    for (const auto& session : attached) taken.insert(session.id);

    std::vector<DiscoveredRow> merged;
    std::map<std::string_view, std::size_t> places;
    for (const auto* rows : {&discovered, &recent}) {
        for (const auto& row : *rows) {
            if (taken.contains(row.id)) continue;
            const auto [place, isNew] = places.try_emplace(row.id, merged.size());
            if (isNew)
                merged.push_back(row);
            else
                fillFrom(merged[place->second], row);
        }
    }
    std::stable_sort(merged.begin(), merged.end(),
                     [](const auto& a, const auto& b) { return a.mtimeMs > b.mtimeMs; });
    return merged;
}

std::string folderOf(std::string_view path) {
    const auto last = path.find_last_not_of('/');
    if (last == std::string_view::npos) return std::string(path.substr(0, 1));
    path = path.substr(0, last + 1);
    return std::string(path.substr(path.rfind('/') + 1));
}

std::string folderSourceKey(const DiscoveredRow& row) {
    return folderOf(row.cwd) + '\x1f' + row.source;
}

std::set<std::string> collidingFolderSourceKeys(const std::vector<DiscoveredRow>& rows) {
    std::set<std::string> seen;
    std::set<std::string> colliding;
    for (const auto& row : rows)
        if (auto key = folderSourceKey(row); !seen.insert(key).second)
            colliding.insert(std::move(key));
    return colliding;
}

}  // namespace sonra::menu
