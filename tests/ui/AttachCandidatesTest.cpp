#include "ui/AttachCandidates.h"

#include <gtest/gtest.h>

namespace sonra::menu {
namespace {

DiscoveredRow row(const std::string& id, double mtimeMs, const std::string& cwd = "/home/me/proj",
                  const std::string& source = "claude-code") {
    DiscoveredRow made;
    made.id = id;
    made.cwd = cwd;
    made.source = source;
    made.mtimeMs = mtimeMs;
    return made;
}

std::vector<std::string> ids(const std::vector<DiscoveredRow>& rows) {
    std::vector<std::string> list;
    for (const auto& each : rows) list.push_back(each.id);
    return list;
}

using Ids = std::vector<std::string>;

TEST(AttachCandidates, AttachedIdDoesNotAppear) {
    const auto merged = mergedAttachCandidates({row("a", 3), row("b", 2)}, {row("a", 9)},
                                               {{"a", "/x", "claude-code", "", ""}});
    EXPECT_EQ(ids(merged), Ids{"b"});
}

TEST(AttachCandidates, RowInBothListsAppearsOnce) {
    const auto merged = mergedAttachCandidates({row("a", 1)}, {row("a", 1), row("b", 0)}, {});
    EXPECT_EQ(ids(merged), (Ids{"a", "b"}));
}

TEST(AttachCandidates, LaterRowFillsOnlyWhatIsEmpty) {
    auto first = row("a", 5);
    first.lastText = "said";
    auto later = row("a", 7, "/elsewhere", "codex");
    later.lastText = "other";
    later.title = "Title";
    later.branch = "main";
    const auto merged = mergedAttachCandidates({first}, {later}, {});
    ASSERT_EQ(merged.size(), 1U);
    auto expected = first;
    expected.title = "Title";
    expected.branch = "main";
    expected.mtimeMs = 7;
    EXPECT_EQ(merged[0], expected);
}

TEST(AttachCandidates, LaterRowDoesNotMakeItOlder) {
    EXPECT_EQ(mergedAttachCandidates({row("a", 7)}, {row("a", 5)}, {})[0].mtimeMs, 7);
}

TEST(AttachCandidates, NewestFirstAcrossBothLists) {
    const auto merged = mergedAttachCandidates({row("old", 1), row("mid", 5), row("same", 5)},
                                               {row("new", 9), row("old", 7)}, {});
    EXPECT_EQ(ids(merged), (Ids{"new", "old", "mid", "same"}));
}

TEST(AttachCandidates, NothingFoundNothingOffered) {
    EXPECT_TRUE(mergedAttachCandidates({}, {}, {}).empty());
}

TEST(AttachCandidates, FolderIsTheLastComponent) {
    EXPECT_EQ(folderOf("/home/me/proj"), "proj");
    EXPECT_EQ(folderOf("/home/me/proj//"), "proj");
    EXPECT_EQ(folderOf("proj"), "proj");
    EXPECT_EQ(folderOf("/"), "/");
    EXPECT_EQ(folderOf("//"), "/");
    EXPECT_EQ(folderOf(""), "");
}

TEST(AttachCandidates, OnlySharedFolderAndSourceCollide) {
    const std::vector<DiscoveredRow> rows{row("a", 1, "/x/proj"), row("b", 1, "/y/proj"),
                                          row("c", 1, "/z/proj"), row("d", 1, "/x/proj", "codex"),
                                          row("e", 1, "/x/other")};
    const auto keys = collidingFolderSourceKeys(rows);
    EXPECT_EQ(keys, std::set<std::string>{"proj\x1f"
                                          "claude-code"});
    EXPECT_TRUE(keys.contains(folderSourceKey(rows[1])));
    EXPECT_FALSE(keys.contains(folderSourceKey(rows[3])));
    EXPECT_FALSE(keys.contains(folderSourceKey(rows[4])));
}

}  // namespace
}  // namespace sonra::menu
