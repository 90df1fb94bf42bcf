#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/TreeWatcher.h"

namespace sonra {

/// The two calls of an inotify descriptor that watches are made of.
class InotifyWatches {
  public:
    virtual ~InotifyWatches() = default;

    /// The watch's number, or the negative errno. Of two paths to one directory the number is one.
    virtual int add(const std::string& path, std::uint32_t mask) = 0;
    virtual void remove(int wd) = 0;
};

/// Knows which directories of a tree are watched, and turns what the kernel tells into what the
/// port promises. The directories above the root are watched for being moved or removed, and while
/// the root isn't there the nearest of them for what appears in it. So are the directories that
/// symbolic links on the way to the root lie in and lead over: a link that is pointed elsewhere is
/// a moved root. One thread at a time; `watches` must outlive it.
class InotifyTree {
  public:
    InotifyTree(std::string root, InotifyWatches& watches);

    /// Looks at all there is, from the beginning, and watches it.
    void arm();
    /// What the records in one read of the descriptor come to.
    TreeEvents collect(std::span<const std::byte> records);
    /// True if the system's limit left a directory unwatched.
    [[nodiscard]] bool isIncomplete() const { return incomplete_; }

  private:
    using Names = std::vector<std::string>;

    [[nodiscard]] std::set<int> watched() const;
    void armRoot();
    void armLinks();
    [[nodiscard]] bool isLink(int wd, std::uint32_t mask, const std::string& name) const;
    int add(const std::string& path, std::uint32_t mask);
    int addOrAwait(const std::string& path, const std::string& above);
    bool watchDirectory(const std::string& name);
    bool forgetDirectory(const std::string& name);
    void rearm(TreeEvents& result);
    void noteRoot(std::uint32_t mask, const std::string& name, TreeEvents& result);
    void noteDirectory(int wd, std::uint32_t mask, const std::string& name, TreeEvents& result);
    void noteNewDirectory(const std::string& name, TreeEvents& result);
    [[nodiscard]] std::string pathOf(std::string_view name) const;

    const std::string root_;
    InotifyWatches& watches_;
    int rootWd_ = -1;
    std::set<int> ancestors_;
    std::map<int, std::set<std::string>> links_;  // names of the links on the way, by directory
    std::unordered_map<int, Names> namesOf_;      // several where links lead to one directory
    std::unordered_map<std::string, int> wdOf_;
    bool incomplete_ = false;
};

}  // namespace sonra
