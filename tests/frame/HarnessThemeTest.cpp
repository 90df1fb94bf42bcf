#include "frame/HarnessTheme.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

namespace sonra {
namespace {

struct Row {
    const char* id;
    const char* displayName;
    const char* chipLabel;
    Rgb accentStart;
    Rgb accentEnd;
    Rgb glowColor;
    Rgb inkOnAccent;
    bool isExperimental;
};

constexpr Row rows[] = {{"claude-code",
                         "Claude Code",
                         "CC",
                         {1.0, 0.71, 0.3},
                         {1.0, 0.43, 0.42},
                         {1.0, 0.5, 0.3},
                         {0.1, 0.05, 0.0},
                         false},
                        {"codex",
                         "Codex CLI",
                         "CDX",
                         {0.31, 0.76, 0.97},
                         {0.36, 0.42, 1.0},
                         {0.34, 0.55, 0.99},
                         {0.02, 0.05, 0.12},
                         false},
                        {"gemini",
                         "Gemini CLI",
                         "GEM",
                         {0.56, 0.49, 1.0},
                         {0.36, 0.83, 1.0},
                         {0.5, 0.65, 1.0},
                         {0.04, 0.04, 0.12},
                         false},
                        {"aider",
                         "Aider",
                         "AID",
                         {1.0, 0.65, 0.15},
                         {1.0, 0.44, 0.38},
                         {1.0, 0.55, 0.27},
                         {0.1, 0.05, 0.0},
                         false},
                        {"cline",
                         "Cline",
                         "CLN",
                         {0.31, 0.82, 0.66},
                         {0.44, 0.89, 0.51},
                         {0.38, 0.86, 0.58},
                         {0.0, 0.07, 0.04},
                         true},
                        {"opencode",
                         "OpenCode",
                         "OC",
                         {1.0, 0.43, 0.78},
                         {1.0, 0.56, 0.69},
                         {1.0, 0.5, 0.74},
                         {0.1, 0.0, 0.06},
                         true},
                        {"pi",
                         "Pi",
                         "PI",
                         {0.0, 0.78, 0.74},
                         {0.44, 0.92, 0.8},
                         {0.2, 0.85, 0.77},
                         {0.0, 0.07, 0.06},
                         false}};

TEST(HarnessTheme, ListsTheSevenAgentsInOrderWithTheirLooks) {
    const auto all = HarnessTheme::all();
    ASSERT_EQ(all.size(), std::size(rows));
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].id, rows[i].id);
        EXPECT_EQ(all[i].displayName(), rows[i].displayName);
        EXPECT_EQ(all[i].chipLabel(), rows[i].chipLabel);
        EXPECT_EQ(all[i].accentStart, rows[i].accentStart) << rows[i].id;
        EXPECT_EQ(all[i].accentEnd, rows[i].accentEnd) << rows[i].id;
        EXPECT_EQ(all[i].glowColor, rows[i].glowColor) << rows[i].id;
        EXPECT_EQ(all[i].inkOnAccent, rows[i].inkOnAccent) << rows[i].id;
        EXPECT_EQ(all[i].isExperimental, rows[i].isExperimental) << rows[i].id;
    }
}

TEST(HarnessTheme, GarbageIsTheThemeOfClaudeCode) {
    for (const auto* source : {"garbage", "", "Claude-Code", "claude-code ", "codex\n"})
        EXPECT_EQ(HarnessTheme::current(source).id, "claude-code") << source;
}

TEST(HarnessTheme, EveryIdIsItsOwnTheme) {
    std::set<std::string_view> ids;
    for (const auto& theme : HarnessTheme::all()) {
        EXPECT_TRUE(ids.insert(theme.id).second) << theme.id;
        EXPECT_EQ(HarnessTheme::current(theme.id), theme);
        EXPECT_TRUE(HarnessTheme::isKnown(theme.id));
    }
    EXPECT_FALSE(HarnessTheme::isKnown("garbage"));
    EXPECT_FALSE(HarnessTheme::isKnown(""));
}

TEST(HarnessTheme, EveryChipLabelIsTwoOrThreeCapitals) {
    std::set<std::string_view> labels;
    for (const auto& theme : HarnessTheme::all()) {
        const auto label = theme.chipLabel();
        EXPECT_TRUE(label.size() == 2 || label.size() == 3) << label;
        EXPECT_TRUE(std::all_of(label.begin(), label.end(), [](char c) {
            return c >= 'A' && c <= 'Z';
        })) << label;
        EXPECT_TRUE(labels.insert(label).second) << label;
    }
}

TEST(HarnessTheme, GeminiIsShownByNameNotBySlug) {
    EXPECT_EQ(HarnessTheme::current("gemini").displayName(), "Gemini CLI");
    EXPECT_EQ(HarnessTheme::displayName("gemini"), "Gemini CLI");
}

TEST(HarnessTheme, AnUnknownSourceIsShownAsItIs) {
    EXPECT_EQ(HarnessTheme::displayName("my-agent"), "my-agent");
    EXPECT_EQ(HarnessTheme::displayName(""), "");
}

TEST(HarnessTheme, TheChipHasTheColourInWhichTheAccentStarts) {
    for (const auto& theme : HarnessTheme::all()) EXPECT_EQ(theme.chipColor(), theme.accentStart);
}

TEST(HarnessTheme, ComparesFieldByField) {
    auto theme = HarnessTheme::current("pi");
    EXPECT_EQ(theme, HarnessTheme::current("pi"));
    theme.glowColor.blue += 0.01;
    EXPECT_NE(theme, HarnessTheme::current("pi"));
}

TEST(HarnessTheme, EveryColourIsInRange) {
    for (const auto& theme : HarnessTheme::all())
        for (const auto& colour :
             {theme.accentStart, theme.accentEnd, theme.glowColor, theme.inkOnAccent})
            for (const double part : {colour.red, colour.green, colour.blue})
                EXPECT_TRUE(part >= 0 && part <= 1) << theme.id;
}

}  // namespace
}  // namespace sonra
