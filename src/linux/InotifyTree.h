#pragma once

#include <cstddef>
#include <cstdint>
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
/// port promises. While the root isn't there, the nearest directory above it is watched. One thread
/// at a time; `watches` must outlive it.
class InotifyTree {
  public:
    InotifyTree(std::string root, InotifyWatches& watches);

    /// Watches all there is, from the beginning.
    void arm();
    /// What the records in one read of the descriptor come to.
    TreeEvents collect(std::span<const std::byte> records);
    /// True if the system's limit left a directory unwatched.
    [[nodiscard]] bool isIncomplete() const { return incomplete_; }

  private:
    using Names = std::vector<std::string>;

    void disarm();
    void armAncestor();
    int add(const std::string& path);
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
    int ancestorWd_ = -1;
    std::unordered_map<int, Names> namesOf_;  // several where links lead to one directory
    std::unordered_map<std::string, int> wdOf_;
    bool incomplete_ = false;
};

}  // namespace sonra
