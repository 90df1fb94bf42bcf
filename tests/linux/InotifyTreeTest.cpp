#include "linux/InotifyTree.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <span>

#include "support/TempDir.h"

namespace sonra {
namespace {

namespace fs = std::filesystem;
using Paths = std::vector<std::string>;

/// Looks at the real directories, as the kernel would, but has a limit of its own and sends only
/// what the test makes.
class FakeWatches : public InotifyWatches {
  public:
    int add(const std::string& path, std::uint32_t mask) override {
        std::error_code error;
        if (!fs::exists(path, error)) return -ENOENT;
        if (!fs::is_directory(path, error)) return -ENOTDIR;
        const auto real = fs::canonical(path).string();
        for (const auto& [wd, known] : watched)
            if (known == real) {
                masks[wd] = mask;
                return wd;
            }
        if (watched.size() >= limit) return -ENOSPC;
        masks[next_] = mask;
        watched[next_] = real;
        return next_++;
    }
    void remove(int wd) override {
        watched.erase(wd);
        ++removals;
    }
    int of(const std::string& path) const {
        for (const auto& [wd, known] : watched)
            if (known == path) return wd;
        return -1;
    }

    std::uint32_t maskOf(const std::string& path) const { return masks.at(of(path)); }

    std::map<int, std::string> watched;
    std::map<int, std::uint32_t> masks;
    std::size_t limit = 1000;
    int removals = 0;

  private:
    int next_ = 1;
};

class InotifyTreeTest : public testing::Test {
  protected:
    InotifyTreeTest() { fs::create_directories(root + "/p"); }

    static std::string record(int wd, std::uint32_t mask, const std::string& name) {
        inotify_event header{};
        header.wd = wd;
        header.mask = mask;
        header.len = name.empty() ? 0 : static_cast<std::uint32_t>((name.size() / 16 + 1) * 16);
        std::string bytes(sizeof header + header.len, '\0');
        std::memcpy(bytes.data(), &header, sizeof header);
        std::memcpy(bytes.data() + sizeof header, name.data(), name.size());
        return bytes;
    }
    TreeEvents collect(const std::string& bytes) {
        return tree.collect(std::as_bytes(std::span(bytes)));
    }
    TreeEvents event(const std::string& directory, std::uint32_t mask,
                     const std::string& name = "") {
        return collect(record(watches.of(directory), mask, name));
    }

    static std::size_t depthOf(const fs::path& path) {
        return static_cast<std::size_t>(std::distance(path.begin(), path.end()));
    }
    /// How many directories of the tree are watched.
    std::ptrdiff_t inTree() const {
        return std::ranges::count_if(watches.watched,
                                     [&](const auto& one) { return one.second.starts_with(root); });
    }

    test::TempDir dir;
    const std::string base = fs::canonical(dir.path()).string();
    const std::string root = base + "/projects";
    const std::size_t above = depthOf(base);
    FakeWatches watches;
    InotifyTree tree{root, watches};
};

TEST_F(InotifyTreeTest, TheRootItsDirectoriesAndThoseAboveAreWatchedAndNothingElse) {
    fs::create_directories(root + "/p/deeper");
    test::writeFile(root + "/file", "");
    tree.arm();
    EXPECT_EQ(inTree(), 2);
    EXPECT_EQ(watches.watched.size(), above + 2);
    EXPECT_FALSE(tree.isIncomplete());
    tree.arm();
    EXPECT_EQ(watches.watched.size(), above + 2);
    EXPECT_EQ(watches.removals, 0);
}

TEST_F(InotifyTreeTest, FilesOfDirectoriesAreReportedAndThoseOfTheRootNot) {
    tree.arm();
    EXPECT_EQ(event(root + "/p", IN_MODIFY, "a.jsonl").paths, Paths{root + "/p/a.jsonl"});
    EXPECT_TRUE(event(root, IN_MODIFY, "a.jsonl").paths.empty());
    EXPECT_TRUE(event(root, IN_CREATE, "a.jsonl").paths.empty());
}

TEST_F(InotifyTreeTest, ANewDirectoryIsWatchedAndItsFilesCountAsMade) {
    tree.arm();
    fs::create_directory(root + "/q");
    test::writeFile(root + "/q/a.jsonl", "");
    EXPECT_EQ(event(root, IN_CREATE | IN_ISDIR, "q").paths, Paths{root + "/q/a.jsonl"});
    EXPECT_EQ(event(root + "/q", IN_DELETE, "a.jsonl").paths, Paths{root + "/q/a.jsonl"});
}

TEST_F(InotifyTreeTest, ADirectoryThatGoesIsADemandToRescan) {
    tree.arm();
    const int gone = watches.of(root + "/p");
    EXPECT_TRUE(event(root, IN_MOVED_FROM | IN_ISDIR, "p").rescan);
    EXPECT_EQ(inTree(), 1);
    EXPECT_TRUE(collect(record(gone, IN_MODIFY, "a.jsonl")).paths.empty());
}

TEST_F(InotifyTreeTest, AMovedRootIsADemandToRescanAndIsAwaited) {
    tree.arm();
    fs::rename(root, root + "2");
    EXPECT_TRUE(event(root, IN_MOVE_SELF).rescan);
    EXPECT_EQ(inTree(), 0);
    fs::rename(root + "2", root);
    EXPECT_TRUE(event(base, IN_MOVED_TO | IN_ISDIR, "projects").rescan);
    EXPECT_EQ(inTree(), 2);
}

TEST_F(InotifyTreeTest, AMovedDirectoryAboveTheRootIsADemandToRescanAndAnotherTakesItsPlace) {
    InotifyTree deep(root + "/a/b", watches);
    fs::create_directories(root + "/a/b/p");
    deep.arm();
    const int old = watches.of(root + "/a/b/p");
    const auto moved = record(watches.of(root + "/a"), IN_MOVE_SELF, "");
    fs::rename(root + "/a", root + "/a2");
    watches.watched[watches.of(root + "/a")] = root + "/a2";
    watches.watched[watches.of(root + "/a/b")] = root + "/a2/b";
    watches.watched[old] = root + "/a2/b/p";
    fs::create_directories(root + "/a/b/p");
    EXPECT_TRUE(deep.collect(std::as_bytes(std::span(moved))).rescan);
    EXPECT_EQ(watches.of(root + "/a2/b/p"), -1);
    const auto written = record(watches.of(root + "/a/b/p"), IN_MODIFY, "a.jsonl");
    EXPECT_EQ(deep.collect(std::as_bytes(std::span(written))).paths,
              Paths{root + "/a/b/p/a.jsonl"});
}

TEST_F(InotifyTreeTest, WhatIsMadeInADirectoryAboveTheRootIsToldOnlyWhileTheRootIsAwaited) {
    tree.arm();
    EXPECT_EQ(watches.maskOf(base) & (IN_CREATE | IN_MODIFY), 0U);
    fs::remove_all(root);
    (void)event(root, IN_DELETE_SELF);
    EXPECT_EQ(watches.maskOf(base) & (IN_CREATE | IN_MODIFY), std::uint32_t{IN_CREATE});
    fs::create_directory(root);
    EXPECT_TRUE(event(base, IN_CREATE | IN_ISDIR, "projects").rescan);
    EXPECT_EQ(watches.maskOf(base) & (IN_CREATE | IN_MODIFY), 0U);
}

TEST_F(InotifyTreeTest, ALinkToADirectoryAboveTheRootTellsOfItsFilesAndItsEndEndsNoWatchThere) {
    fs::create_symlink("..", root + "/up");
    tree.arm();
    EXPECT_EQ(event(base, IN_MODIFY, "a.jsonl").paths, Paths{root + "/up/a.jsonl"});
    EXPECT_TRUE(event(root, IN_DELETE, "up").rescan);
    EXPECT_NE(watches.of(base), -1);
}

TEST_F(InotifyTreeTest, ARootThatIsntThereYetIsAwaitedFromFarAbove) {
    fs::remove_all(root);
    InotifyTree deep(root + "/a/b", watches);
    deep.arm();
    EXPECT_EQ(watches.watched.size(), above);
    fs::create_directories(root);
    const auto first = record(watches.of(base), IN_CREATE | IN_ISDIR, "projects");
    EXPECT_FALSE(deep.collect(std::as_bytes(std::span(first))).rescan);
    fs::create_directories(root + "/a/b/p");
    const auto second = record(watches.of(root), IN_CREATE | IN_ISDIR, "a");
    EXPECT_TRUE(deep.collect(std::as_bytes(std::span(second))).rescan);
    EXPECT_NE(watches.of(root + "/a/b/p"), -1);
}

TEST_F(InotifyTreeTest, LostEventsAreADemandToRescanAndNewDirectoriesAreFound) {
    tree.arm();
    fs::create_directory(root + "/q");
    EXPECT_TRUE(collect(record(-1, IN_Q_OVERFLOW, "")).rescan);
    EXPECT_NE(watches.of(root + "/q"), -1);
}

TEST_F(InotifyTreeTest, AfterLostEventsOnlyWhatIsNotThereAnyMoreEnds) {
    for (int i = 0; i < 100; ++i) fs::create_directory(root + "/" + std::to_string(i));
    tree.arm();
    const int gone = watches.of(root + "/7");
    fs::rename(root + "/7", base + "/7");
    watches.watched[gone] = base + "/7";
    (void)collect(record(-1, IN_Q_OVERFLOW, ""));
    EXPECT_EQ(watches.removals, 1);
    EXPECT_FALSE(watches.watched.contains(gone));
    EXPECT_EQ(event(root + "/8", IN_MODIFY, "a.jsonl").paths, Paths{root + "/8/a.jsonl"});
}

TEST_F(InotifyTreeTest, TheLimitLeavesTheTreeIncompleteUntilThereIsRoom) {
    fs::create_directory(root + "/q");
    watches.limit = above + 2;
    tree.arm();
    EXPECT_TRUE(tree.isIncomplete());
    watches.limit = above + 3;
    tree.arm();
    EXPECT_FALSE(tree.isIncomplete());
}

TEST_F(InotifyTreeTest, ADirectoryBehindTwoNamesIsReportedUnderBoth) {
    fs::create_symlink("p", root + "/alias");
    tree.arm();
    auto paths = event(root + "/p", IN_MODIFY, "a.jsonl").paths;
    std::ranges::sort(paths);
    EXPECT_EQ(paths, (Paths{root + "/alias/a.jsonl", root + "/p/a.jsonl"}));
    EXPECT_TRUE(event(root, IN_DELETE, "alias").rescan);
    EXPECT_EQ(event(root + "/p", IN_MODIFY, "a.jsonl").paths, Paths{root + "/p/a.jsonl"});
}

TEST_F(InotifyTreeTest, ALinkToTheRootItselfDoesNoHarm) {
    fs::create_symlink(".", root + "/self");
    tree.arm();
    EXPECT_EQ(event(root, IN_MODIFY, "a.jsonl").paths, Paths{root + "/self/a.jsonl"});
    EXPECT_TRUE(event(root, IN_DELETE, "self").rescan);
    EXPECT_NE(watches.of(root), -1);
}

TEST_F(InotifyTreeTest, ADirectoryThatBecomesReadableIsWatched) {
    watches.limit = above + 1;
    tree.arm();
    watches.limit = above + 2;
    test::writeFile(root + "/p/a.jsonl", "");
    EXPECT_EQ(event(root, IN_ATTRIB | IN_ISDIR, "p").paths, Paths{root + "/p/a.jsonl"});
    EXPECT_TRUE(event(root, IN_ATTRIB | IN_ISDIR, "p").paths.empty());
}

TEST_F(InotifyTreeTest, ARecordCutOffEndsTheList) {
    tree.arm();
    const auto bytes = record(watches.of(root + "/p"), IN_MODIFY, "a.jsonl");
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_TRUE(collect(bytes.substr(0, length)).paths.empty());
}

}  // namespace
}  // namespace sonra
