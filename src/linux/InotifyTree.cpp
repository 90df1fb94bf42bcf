#include "linux/InotifyTree.h"

#include <sys/inotify.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

namespace sonra {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t appearedMask = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t vanishedMask = IN_DELETE | IN_MOVED_FROM;
constexpr std::uint32_t goneMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
// One mask for all: adding another one for a directory that is watched by another name would
// replace the first.
constexpr std::uint32_t watchedMask = appearedMask | vanishedMask | IN_MODIFY | IN_ATTRIB |
                                      IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

std::vector<std::string> namesIn(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error))
        names.push_back(entry->path().filename().string());
    return names;
}

/// Calls `visit` with number, mask and name of each record; one that is cut off ends the list.
template <typename Visit>
void eachRecord(std::span<const std::byte> records, Visit visit) {
    while (records.size() >= sizeof(inotify_event)) {
        inotify_event header;
        std::memcpy(&header, records.data(), sizeof header);
        records = records.subspan(sizeof header);
        if (header.len > records.size()) return;
        const auto* name = reinterpret_cast<const char*>(records.data());
        visit(header.wd, header.mask, std::string(name, ::strnlen(name, header.len)));
        records = records.subspan(header.len);
    }
}

}  // namespace

InotifyTree::InotifyTree(std::string root, InotifyWatches& watches)
    : root_(std::move(root)), watches_(watches) {}

std::string InotifyTree::pathOf(std::string_view name) const {
    return root_ + "/" + std::string(name);
}

int InotifyTree::add(const std::string& path) {
    const int wd = watches_.add(path, watchedMask);
    if (wd == -ENOSPC || wd == -EMFILE || wd == -ENOMEM) incomplete_ = true;
    return wd;
}

void InotifyTree::disarm() {
    for (const auto& [wd, names] : namesOf_)
        if (wd != rootWd_) watches_.remove(wd);
    if (rootWd_ >= 0) watches_.remove(rootWd_);
    if (ancestorWd_ >= 0) watches_.remove(ancestorWd_);
    namesOf_.clear();
    wdOf_.clear();
    rootWd_ = ancestorWd_ = -1;
}

void InotifyTree::arm() {
    disarm();
    incomplete_ = false;
    rootWd_ = add(root_);
    if (rootWd_ < 0) {
        armAncestor();
        // It may have come between the two.
        rootWd_ = add(root_);
        if (rootWd_ < 0) return;
        if (ancestorWd_ >= 0) watches_.remove(std::exchange(ancestorWd_, -1));
    }
    for (const auto& name : namesIn(root_)) watchDirectory(name);
}

void InotifyTree::armAncestor() {
    fs::path path = root_;
    while (path.has_relative_path() && ancestorWd_ < 0) {
        path = path.parent_path();
        ancestorWd_ = add(path);
    }
}

/// False for what isn't a directory, may not be read, or is one too many.
bool InotifyTree::watchDirectory(const std::string& name) {
    const int wd = add(pathOf(name));
    if (wd < 0) return false;
    namesOf_[wd].push_back(name);
    wdOf_[name] = wd;
    return true;
}

bool InotifyTree::forgetDirectory(const std::string& name) {
    const auto found = wdOf_.find(name);
    if (found == wdOf_.end()) return false;
    const int wd = found->second;
    wdOf_.erase(found);
    auto& names = namesOf_[wd];
    std::erase(names, name);
    if (names.empty()) {
        namesOf_.erase(wd);
        if (wd != rootWd_) watches_.remove(wd);
    }
    return true;
}

void InotifyTree::rearm(TreeEvents& result) {
    const bool wasThere = rootWd_ >= 0;
    arm();
    result.rescan |= wasThere || rootWd_ >= 0;
}

/// Watched first and listed then: a file that comes between is told of twice rather than never.
void InotifyTree::noteNewDirectory(const std::string& name, TreeEvents& result) {
    if (!watchDirectory(name)) return;
    const auto path = pathOf(name);
    for (const auto& file : namesIn(path))
        result.paths.push_back(pathOf(name).append("/").append(file));
}

void InotifyTree::noteRoot(std::uint32_t mask, const std::string& name, TreeEvents& result) {
    if (name.empty()) {
        if ((mask & goneMask) != 0) rearm(result);
        return;
    }
    if ((mask & (vanishedMask | appearedMask)) != 0) result.rescan |= forgetDirectory(name);
    // A directory that couldn't be read may be readable now.
    if ((mask & (appearedMask | IN_ATTRIB)) != 0 && !wdOf_.contains(name))
        noteNewDirectory(name, result);
}

void InotifyTree::noteDirectory(int wd, std::uint32_t mask, const std::string& name,
                                TreeEvents& result) {
    const auto found = namesOf_.find(wd);
    if (found == namesOf_.end()) return;
    if (name.empty()) {
        if ((mask & goneMask) == 0) return;
        result.rescan = true;
        for (const auto& directory : Names(found->second)) forgetDirectory(directory);
        return;
    }
    for (const auto& directory : found->second)
        result.paths.push_back(pathOf(directory).append("/").append(name));
}

TreeEvents InotifyTree::collect(std::span<const std::byte> records) {
    TreeEvents result;
    eachRecord(records, [&](int wd, std::uint32_t mask, const std::string& name) {
        if ((mask & IN_Q_OVERFLOW) != 0) {
            // New directories are among what was lost.
            result.rescan = true;
            arm();
        } else if (wd == ancestorWd_) {
            rearm(result);
        } else {
            // Through a link the root may be one of its own directories.
            noteDirectory(wd, mask, name, result);
            if (wd == rootWd_) noteRoot(mask, name, result);
        }
    });
    return result;
}

}  // namespace sonra
