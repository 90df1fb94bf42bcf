#include <gtest/gtest.h>

#include <limits>

#include "frame/HarnessTheme.h"
#include "ui/HarnessBadge.h"
#include "ui/LevelSteps.h"
#include "ui/RelativeTime.h"
#include "ui/SpeedFormat.h"

namespace sonra::menu {
namespace {

constexpr double now = 1'800'000'000'000;
constexpr double second = 1000;
constexpr double minute = 60 * second;
constexpr double hour = 60 * minute;

struct AgeCase {
    const char* name;
    double ageMs;
    const char* expected;
};

class RelativeTime : public testing::TestWithParam<AgeCase> {};

TEST_P(RelativeTime, HasOneUnit) {
    EXPECT_EQ(relativeTime(now - GetParam().ageMs, now), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Menu, RelativeTime,
    testing::Values(AgeCase{"ThirtySeconds", 30 * second, "now"},
                    AgeCase{"AlmostAMinute", 59.999 * second, "now"},
                    AgeCase{"ToCome", -hour, "now"}, AgeCase{"OneMinute", minute, "1m"},
                    AgeCase{"ThreeMinutes", 3 * minute, "3m"},
                    AgeCase{"AlmostAnHour", hour - 1, "59m"}, AgeCase{"OneHour", hour, "1h"},
                    AgeCase{"TwoHours", 2 * hour, "2h"},
                    AgeCase{"AlmostADay", 24 * hour - 1, "23h"},
                    AgeCase{"ThreeDays", 72 * hour, "3d"}, AgeCase{"Unknown", now, ""},
                    AgeCase{"BeforeTheEpoch", now + 5, ""}),
    [](const auto& which) { return which.param.name; });

TEST(RecentSession, CountsUpToFifteenMinutes) {
    EXPECT_TRUE(isRecent(now - 900'000, now));
    EXPECT_TRUE(isRecent(now + minute, now));
    EXPECT_FALSE(isRecent(now - 900'001, now));
    EXPECT_FALSE(isRecent(0, 1));
}

TEST(SpeedFormat, DropsTheDecimalOfWholeSpeeds) {
    EXPECT_EQ(formatSpeed(2.0), "2x");
    EXPECT_EQ(formatSpeed(1.5), "1.5x");
    EXPECT_EQ(formatSpeed(0.5), "0.5x");
    EXPECT_EQ(formatSpeed(1.25), "1.2x");
    EXPECT_EQ(formatSpeed(10), "10x");
    EXPECT_EQ(formatSpeed(0), "0x");
}

TEST(SpeedFormat, SurvivesTheLargestNumber) {
    EXPECT_EQ(formatSpeed(std::numeric_limits<double>::max()).size(), 310U);
}

TEST(HarnessBadge, HasTheThemesLabelAndNamesItsColours) {
    for (const auto& theme : HarnessTheme::all()) {
        const auto badge = harnessBadge(theme.id, "proj");
        ASSERT_EQ(badge.size(), 2U);
        EXPECT_EQ(badge[0], (MenuText{std::string(theme.chipLabel()), MenuText::Role::chip,
                                      std::string(theme.id)}));
        EXPECT_EQ(HarnessTheme::current(badge[0].source).chipColor(), theme.chipColor());
        EXPECT_EQ(badge[1], (MenuText{"proj", MenuText::Role::label, ""}));
    }
}

TEST(HarnessBadge, OfAnUnknownAgentIsClaudeCodes) {
    EXPECT_EQ(harnessBadge("garbage", "x")[0],
              (MenuText{"CC", MenuText::Role::chip, "claude-code"}));
    EXPECT_EQ(harnessBadge("pi", "").size(), 1U);
}

std::string checkedTitle(const std::vector<MenuRow>& rows) {
    std::string checked;
    for (const auto& row : rows)
        if (row.isChecked.value()) checked += row.title.front().text;
    return checked;
}

TEST(LevelSteps, NearestVolumeAloneIsChecked) {
    const auto checked = [](std::int64_t percent) {
        return checkedTitle(volumeSteps(percent, [](std::int64_t) {}));
    };
    EXPECT_EQ(checked(100), "100%");
    EXPECT_EQ(checked(84), "80%");
    EXPECT_EQ(checked(85), "90%");
    EXPECT_EQ(checked(0), "0%");
    EXPECT_EQ(checked(-40), "0%");
    EXPECT_EQ(checked(std::numeric_limits<std::int64_t>::max()), "100%");
}

TEST(LevelSteps, VolumeRowsGoUpByTenAndChooseTheirLevel) {
    std::vector<std::int64_t> chosen;
    for (const auto& row : volumeSteps(50, [&](std::int64_t level) { chosen.push_back(level); }))
        row.onClick();
    EXPECT_EQ(chosen, (std::vector<std::int64_t>{0, 10, 20, 30, 40, 50, 60, 70, 80, 90, 100}));
}

TEST(LevelSteps, SpeedRowsSayWhatTheyChoose) {
    std::vector<double> chosen;
    const auto rows = speedSteps(1.45, [&](double speed) { chosen.push_back(speed); });
    EXPECT_EQ(checkedTitle(rows), "1.5x");
    for (const auto& row : rows) {
        row.onClick();
        EXPECT_EQ(row.title.front().text, formatSpeed(chosen.back()));
    }
    EXPECT_EQ(chosen.front(), 0.5);
    EXPECT_EQ(chosen.back(), 3);
}

}  // namespace
}  // namespace sonra::menu
