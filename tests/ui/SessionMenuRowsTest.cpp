#include "ui/SessionMenuRows.h"

#include <gtest/gtest.h>

#include "support/FakeStatusItem.h"

namespace sonra::menu {
namespace {

using test::words;
using Role = MenuText::Role;

constexpr double menuTime = 1'800'000'000'000;
constexpr double aMinute = 60'000;

DiscoveredRow sample() {
    DiscoveredRow row;
    row.id = "0b6f7f1d-aaaa-4b57";
    row.cwd = "/home/me/proj";
    row.lastText = "I moved the loop";
    row.source = "codex";
    row.mtimeMs = menuTime - 180 * aMinute;
    return row;
}

std::string titleOf(const DiscoveredRow& row, bool showShortId = false) {
    return words(makeAttachRow(row, menuTime, showShortId, [] {}).title);
}

TEST(AttachRow, PartsComeInOrder) {
    auto row = sample();
    row.mtimeMs = menuTime - 3 * aMinute;
    row.branch = "main";
    const auto made = makeAttachRow(row, menuTime, true, [] {});
    const std::vector<MenuText> expected{{"● ", Role::activeDot, ""},
                                         {"CDX", Role::chip, "codex"},
                                         {"proj", Role::label, ""},
                                         {" ⎇ main", Role::tertiary, ""},
                                         {"  ·  I moved the loop", Role::label, ""},
                                         {" (0b6f7f1d)", Role::tertiary, ""}};
    EXPECT_EQ(made.title, expected);
    EXPECT_EQ(made.trailing, "3m");
}

TEST(AttachRow, DotFollowsTheTimeAndNotTheFlag) {
    auto row = sample();
    row.active = true;
    EXPECT_EQ(titleOf(row), "CDXproj  ·  I moved the loop");
    row.active = false;
    row.mtimeMs = menuTime - 15 * aMinute;
    EXPECT_EQ(titleOf(row), "● CDXproj  ·  I moved the loop");
    row.mtimeMs = 0;
    EXPECT_EQ(titleOf(row), "CDXproj  ·  I moved the loop");
    EXPECT_EQ(makeAttachRow(row, menuTime, false, [] {}).trailing, "");
}

TEST(AttachRow, TitleIsPreferredAndSnippetIsTheFallback) {
    auto row = sample();
    row.title = "Retry loop";
    EXPECT_EQ(titleOf(row), "CDXproj  ·  Retry loop");
    row.title.clear();
    EXPECT_EQ(titleOf(row), "CDXproj  ·  I moved the loop");
    row.lastText.clear();
    EXPECT_EQ(titleOf(row), "CDXproj");
}

TEST(AttachRow, IdStandsInForANamelessRow) {
    auto row = sample();
    row.cwd.clear();
    row.branch = "fix";
    EXPECT_EQ(titleOf(row), "CDX⎇ fix I moved the loop");
    row.lastText.clear();
    EXPECT_EQ(titleOf(row), "CDX0b6f7f1d ⎇ fix");
}

TEST(AttachRow, TextIsCutSoonerBesideABranch) {
    const std::string e44(44, 'e');
    const std::string e60(60, 'e');
    auto row = sample();
    row.title = e60;
    EXPECT_EQ(titleOf(row), "CDXproj  ·  " + e60);
    row.title += "e";
    EXPECT_EQ(titleOf(row), "CDXproj  ·  " + e60 + "…");
    row.branch = "b";
    EXPECT_EQ(titleOf(row), "CDXproj ⎇ b  ·  " + e44 + "…");
    row.title = e44;
    EXPECT_EQ(titleOf(row), "CDXproj ⎇ b  ·  " + e44);
}

TEST(AttachRow, LimitCountsCharactersAndNotBytes) {
    auto row = sample();
    row.title.clear();
    for (int i = 0; i < 60; ++i) row.title += "é";
    EXPECT_EQ(titleOf(row), "CDXproj  ·  " + row.title);
}

TEST(AttachRow, ShortIdOnlyOnDemand) {
    EXPECT_EQ(titleOf(sample(), true), "CDXproj  ·  I moved the loop (0b6f7f1d)");
    EXPECT_EQ(titleOf(sample(), false), "CDXproj  ·  I moved the loop");
}

TEST(AttachRow, ToolTipTellsEverything) {
    auto row = sample();
    row.branch = "main";
    const auto tip = [&row] { return makeAttachRow(row, menuTime, false, [] {}).toolTip; };
    EXPECT_EQ(tip(),
              "0b6f7f1d-aaaa-4b57\nsource: codex\ncwd: /home/me/proj\nbranch: main\n"
              "last activity 3h ago\n\nI moved the loop\n\nClick to attach.");
    row.branch.clear();
    row.lastText.clear();
    row.mtimeMs = menuTime;
    EXPECT_EQ(tip(),
              "0b6f7f1d-aaaa-4b57\nsource: codex\ncwd: /home/me/proj\n"
              "active (last ~15 min)\n\n(no assistant text yet)\n\nClick to attach.");
    row.mtimeMs = 0;
    EXPECT_NE(tip().find("\nlast activity unknown\n"), std::string::npos);
}

TEST(NarratingRow, NamesAgentFolderBranchAndId) {
    const auto title = [](const std::string& cwd, const std::string& branch) {
        return narratingRowTitle({"0b6f7f1d-aaaa", cwd, "pi", branch, ""});
    };
    EXPECT_EQ(title("/home/me/proj", "")[0], (MenuText{"PI", Role::chip, "pi"}));
    EXPECT_EQ(words(title("/home/me/proj", "")), "PIproj  0b6f7f1d");
    EXPECT_EQ(words(title("/home/me/proj", "main")), "PIproj ⎇ main  0b6f7f1d");
    EXPECT_EQ(words(title("", "")), "PI0b6f7f1d  0b6f7f1d");
}

}  // namespace
}  // namespace sonra::menu
