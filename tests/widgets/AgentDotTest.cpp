#include "widgets/AgentDot.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPixmap>
#include <algorithm>
#include <cmath>

#include "frame/HarnessTheme.h"
#include "platform/StatusItem.h"

namespace sonra {
namespace {

using Role = MenuText::Role;

constexpr int sizes[] = {16, 22, 32, 48};
constexpr QColor green(0x33, 0xd1, 0x7a);

/// A piece of a title in no colour of its own.
MenuText plain(std::string text) {
    return {std::move(text), Role::label, {}};
}

QImage picture(const AgentDot& dot, int pixels) {
    return dot.icon()
        .pixmap(QSize(pixels, pixels))
        .toImage()
        .convertToFormat(QImage::Format_ARGB32);
}

/// The pixel at a place of the icon, in sixteenths of its side.
QColor at(const QImage& image, double x, double y) {
    return image.pixelColor(static_cast<int>(x * image.width() / 16),
                            static_cast<int>(y * image.height() / 16));
}

double channel(const Rgb& color, int index) {
    return 255 * (index == 0 ? color.red : index == 1 ? color.green : color.blue);
}

double channel(const QColor& color, int index) {
    return index == 0 ? color.red() : index == 1 ? color.green() : color.blue();
}

/// Where a colour lies on the way between an agent's two, and how far off it.
struct Place {
    double share = 0;
    double distance = 0;
};

Place placeIn(const HarnessTheme& theme, const QColor& color) {
    double along = 0;
    double length = 0;
    for (int i = 0; i < 3; ++i) {
        const double way = channel(theme.accentEnd, i) - channel(theme.accentStart, i);
        along += way * (channel(color, i) - channel(theme.accentStart, i));
        length += way * way;
    }
    Place place{std::clamp(along / length, 0.0, 1.0), 0};
    for (int i = 0; i < 3; ++i) {
        const double way = channel(theme.accentEnd, i) - channel(theme.accentStart, i);
        const double there = channel(theme.accentStart, i) + place.share * way;
        place.distance = std::max(place.distance, std::abs(there - channel(color, i)));
    }
    return place;
}

bool isNear(const QColor& one, const QColor& other) {
    for (int i = 0; i < 3; ++i)
        if (std::abs(channel(one, i) - channel(other, i)) > 2) return false;
    return true;
}

int opaqueGreens(const QImage& image) {
    int count = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (image.pixelColor(x, y).alpha() == 255 && isNear(image.pixelColor(x, y), green))
                ++count;
    return count;
}

TEST(AgentDot, IsInItsAgentsColoursFromStartToEnd) {
    for (const auto& theme : HarnessTheme::all()) {
        for (const int pixels : sizes) {
            const auto image = picture({theme.id}, pixels);
            ASSERT_EQ(image.size(), QSize(pixels, pixels));
            int opaque = 0;
            for (int y = 0; y < pixels; ++y) {
                for (int x = 0; x < pixels; ++x) {
                    const auto color = image.pixelColor(x, y);
                    if (color.alpha() < 255) continue;
                    ++opaque;
                    ASSERT_LE(placeIn(theme, color).distance, 2)
                        << theme.id << " " << color.name().toStdString();
                }
            }
            // A circle of five eighths of the side has 0.31 of the square, less its edge.
            EXPECT_GT(opaque, pixels * pixels / 5) << theme.id << " " << pixels;
            EXPECT_LT(placeIn(theme, at(image, 5.5, 5.5)).share, 0.4) << theme.id;
            EXPECT_GT(placeIn(theme, at(image, 10, 10)).share, 0.6) << theme.id;
            EXPECT_EQ(at(image, 0, 0).alpha(), 0);
            EXPECT_EQ(at(image, 15, 15).alpha(), 0);
        }
    }
}

TEST(AgentDot, TellsAgentsApart) {
    for (const auto& one : HarnessTheme::all())
        for (const auto& other : HarnessTheme::all())
            if (one.id != other.id) {
                EXPECT_NE(picture({one.id}, 16), picture({other.id}, 16))
                    << one.id << " " << other.id;
            }
}

TEST(AgentDot, IsGreenAtItsCornerWhileItsAgentIsActive) {
    for (const auto& theme : HarnessTheme::all()) {
        for (const int pixels : sizes) {
            const auto quiet = picture({theme.id, false}, pixels);
            const auto active = picture({theme.id, true}, pixels);
            EXPECT_EQ(opaqueGreens(quiet), 0) << theme.id;
            // A circle of three eighths of the side has 0.11 of the square, less its edge.
            EXPECT_GT(opaqueGreens(active), pixels * pixels / 20) << theme.id << " " << pixels;
            EXPECT_TRUE(isNear(at(active, 12, 12), green)) << theme.id << " " << pixels;
            // The other corner is the agent's as before.
            EXPECT_EQ(at(active, 5.5, 5.5), at(quiet, 5.5, 5.5));
        }
    }
}

TEST(AgentDot, TheGreenStandsFreeOfTheDot) {
    const auto active = picture({"codex", true}, 48);
    // On the way from the middle of one to the middle of the other.
    EXPECT_EQ(at(active, 8, 8).alpha(), 255);
    EXPECT_EQ(at(active, 9.5, 9.5).alpha(), 0);
    EXPECT_EQ(at(active, 12, 12).alpha(), 255);
}

TEST(AgentDot, AnUnknownAgentHasTheFirstOnesColours) {
    EXPECT_EQ(picture({"somebody"}, 32), picture({HarnessTheme::all().front().id}, 32));
}

TEST(AgentDot, ComesFromTheChipAndTheActiveDotOfARow) {
    MenuRow row;
    row.title = {plain("proj")};
    EXPECT_EQ(agentDotOf(row), std::nullopt);
    row.title = {{"● ", Role::activeDot, {}}, plain("proj")};
    EXPECT_EQ(agentDotOf(row), std::nullopt);
    row.title = {{"CDX", Role::chip, "codex"}, plain("proj")};
    EXPECT_EQ(agentDotOf(row), (AgentDot{"codex", false}));
    row.title.insert(row.title.begin(), {"● ", Role::activeDot, {}});
    EXPECT_EQ(agentDotOf(row), (AgentDot{"codex", true}));
}

}  // namespace
}  // namespace sonra
