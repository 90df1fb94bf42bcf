#include "linux/InotifyTree.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "linux/LinkedPath.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t appearedMask = IN_CREATE | IN_MOVED_TO;
constexpr std::uint32_t vanishedMask = IN_DELETE | IN_MOVED_FROM;
constexpr std::uint32_t goneMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
// What happens in the directories above the root is no news, but for what is missing there.
constexpr std::uint32_t ancestorMask = IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
constexpr std::uint32_t awaitingMask = ancestorMask | appearedMask | IN_ATTRIB;
// One mask for the root and its directories, with all of the others in it: adding another one for
// a directory that is watched by another name replaces the first.
constexpr std::uint32_t watchedMask = awaitingMask | vanishedMask | IN_MODIFY;

// Added to whatever is asked of the directory otherwise.
constexpr std::uint32_t linkMask = ancestorMask | appearedMask | vanishedMask | IN_MASK_ADD;

bool isMissing(int wd) {
    return wd == -ENOENT || wd == -ENOTDIR;
}

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

int InotifyTree::add(const std::string& path, std::uint32_t mask) {
    const int wd = watches_.add(path, mask);
    if (wd == -ENOSPC || wd == -EMFILE || wd == -ENOMEM) incomplete_ = true;
    return wd;
}

std::set<int> InotifyTree::watched() const {
    auto all = ancestors_;
    for (const auto& [wd, names] : namesOf_) all.insert(wd);
    for (const auto& [wd, names] : links_) all.insert(wd);
    if (rootWd_ >= 0) all.insert(rootWd_);
    return all;
}

/// What is still right stays watched: each watch that ends is an event, and so many at once as a
/// large tree has would be lost, which would lead here again.
void InotifyTree::arm() {
    const auto before = watched();
    incomplete_ = false;
    namesOf_.clear();
    wdOf_.clear();
    armRoot();
    armLinks();
    if (rootWd_ >= 0)
        for (const auto& name : namesIn(root_)) watchDirectory(name);
    const auto now = watched();
    for (const int wd : before)
        if (!now.contains(wd)) watches_.remove(wd);
}

/// From above, so that what moves meanwhile is watched already. A directory that may not be read
/// can be gone through all the same.
void InotifyTree::armRoot() {
    rootWd_ = -1;
    ancestors_.clear();
    std::string above;
    fs::path path;
    for (const auto& name : fs::path(root_).parent_path()) {
        path /= name;
        const int wd = addOrAwait(path, above);
        if (isMissing(wd)) return;
        if (wd < 0) continue;
        ancestors_.insert(wd);
        above = path;
    }
    rootWd_ = std::max(-1, addOrAwait(root_, above));
}

/// The directories that the path names are watched by now, but not those that its links lead over.
void InotifyTree::armLinks() {
    links_.clear();
    const auto way = LinkedPath::read(root_);
    if (way.links.empty()) return;
    for (const auto& directory : way.directories)
        if (const int wd = add(directory, ancestorMask | IN_MASK_ADD); wd >= 0 && wd != rootWd_)
            ancestors_.insert(wd);
    for (const auto& link : way.links)
        if (const int wd = add(link.directory, linkMask); wd >= 0) links_[wd].insert(link.name);
    // Of a link to nowhere, the last directory before it tells when there is something.
    if (rootWd_ < 0 && !way.directories.empty())
        add(way.directories.back(), awaitingMask | IN_MASK_ADD);
}

bool InotifyTree::isLink(int wd, std::uint32_t mask, const std::string& name) const {
    const auto found = links_.find(wd);
    return found != links_.end() && (mask & (appearedMask | vanishedMask)) != 0 &&
           found->second.contains(name);
}

/// Where there is nothing to watch at `path`, the directory above it tells when there is.
int InotifyTree::addOrAwait(const std::string& path, const std::string& above) {
    const bool isRoot = path == root_;
    const auto mask = isRoot ? watchedMask : ancestorMask;
    const int wd = add(path, mask);
    if (wd >= 0 || above.empty() || !(isRoot || isMissing(wd))) return wd;
    add(above, awaitingMask);
    // It may have come between the two.
    const int second = add(path, mask);
    if (second >= 0) add(above, ancestorMask);
    return second;
}

/// False for what isn't a directory, may not be read, or is one too many.
bool InotifyTree::watchDirectory(const std::string& name) {
    const int wd = add(pathOf(name), watchedMask);
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
        if (wd != rootWd_ && !ancestors_.contains(wd) && !links_.contains(wd)) watches_.remove(wd);
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
        } else if (isLink(wd, mask, name) ||
                   (ancestors_.contains(wd) && (rootWd_ < 0 || (mask & goneMask) != 0))) {
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
