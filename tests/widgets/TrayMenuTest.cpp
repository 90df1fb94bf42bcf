#include "widgets/TrayMenu.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QPixmap>

#include "widgets/AgentDot.h"

namespace sonra {
namespace {

using Image = MenuRow::Image;
using Role = MenuText::Role;

/// A piece of a title in no colour of its own.
MenuText plainWords(std::string text) {
    return {std::move(text), Role::label, {}};
}

QImage picture(const QIcon& icon) {
    return icon.pixmap(QSize(32, 32)).toImage();
}

MenuRow row(const std::string& id, std::vector<MenuText> title) {
    MenuRow made;
    made.id = id;
    made.title = std::move(title);
    return made;
}

MenuRow agentRow(const std::string& source, bool isActive = false) {
    auto made = row("agent", {{"CHIP", Role::chip, source}, plainWords("proj")});
    if (isActive) made.title.insert(made.title.begin(), {"● ", Role::activeDot, {}});
    return made;
}

class TrayMenuTest : public testing::Test {
  protected:
    /// The icon of the one row.
    QIcon shown(const MenuRow& only) {
        menu_.setRows({only});
        EXPECT_EQ(menu_.actions().size(), 1);
        return menu_.actions().value(0)->icon();
    }
    QImage pictureOf(const MenuRow& only) { return picture(shown(only)); }

    TrayMenu menu_{MenuDrawnBy::qt, Qt::white};
};

TEST_F(TrayMenuTest, ARowWithAChipHasItsAgentsDot) {
    EXPECT_EQ(pictureOf(agentRow("codex")), picture(AgentDot{"codex"}.icon()));
    EXPECT_EQ(pictureOf(agentRow("pi")), picture(AgentDot{"pi"}.icon()));
}

TEST_F(TrayMenuTest, ARowThatBecomesActiveChangesItsIcon) {
    const auto quiet = pictureOf(agentRow("codex"));
    auto* action = menu_.actions().value(0);
    const auto active = pictureOf(agentRow("codex", true));
    EXPECT_EQ(menu_.actions().value(0), action) << "a row that stays keeps its action";
    EXPECT_EQ(active, picture(AgentDot{"codex", true}.icon()));
    EXPECT_NE(active, quiet);
    EXPECT_EQ(pictureOf(agentRow("codex")), quiet);
}

TEST_F(TrayMenuTest, AnIconThatStaysTheSameIsNotSetAnew) {
    const auto before = shown(agentRow("codex", true)).cacheKey();
    auto later = agentRow("codex", true);
    later.title.back().text = "other";
    later.trailing = "2m";
    EXPECT_EQ(shown(later).cacheKey(), before);
}

TEST_F(TrayMenuTest, ARowWithAnImageKeepsTheImage) {
    auto bare = row("agent", {plainWords("proj")});
    bare.image = Image::detach;
    const auto image = pictureOf(bare);
    EXPECT_FALSE(image.isNull());
    auto both = agentRow("codex", true);
    both.image = Image::detach;
    EXPECT_EQ(pictureOf(both), image);
    both.title = agentRow("pi").title;
    EXPECT_EQ(pictureOf(both), image);
    both.image = Image::none;
    EXPECT_EQ(pictureOf(both), picture(AgentDot{"pi"}.icon()));
}

TEST_F(TrayMenuTest, ARowOfNeitherHasNoIcon) {
    EXPECT_TRUE(shown(row("agent", {plainWords("About")})).isNull());
    EXPECT_FALSE(shown(agentRow("codex")).isNull());
    EXPECT_TRUE(shown(row("agent", {plainWords("About")})).isNull());
}

TEST_F(TrayMenuTest, AnotherInkColoursImagesAndLeavesAgentsAlone) {
    auto stop = row("stop", {plainWords("Stop")});
    stop.image = Image::stop;
    menu_.setRows({stop, agentRow("codex")});
    const auto icons = [this] {
        return std::pair(picture(menu_.actions().value(0)->icon()),
                         picture(menu_.actions().value(1)->icon()));
    };
    const auto before = icons();
    menu_.setInk(Qt::black);
    EXPECT_NE(icons().first, before.first);
    EXPECT_EQ(icons().second, before.second);
}

TEST_F(TrayMenuTest, RowsOfASubmenuHaveTheirDotsToo) {
    auto parent = row("sessions", {plainWords("Narrating: 1")});
    parent.kind = MenuRow::Kind::submenu;
    parent.populate = [] { return std::vector{agentRow("gemini")}; };
    menu_.setRows({parent});
    auto* submenu = menu_.actions().value(0)->menu();
    ASSERT_NE(submenu, nullptr);
    EXPECT_TRUE(submenu->actions().isEmpty());
    Q_EMIT submenu->aboutToShow();
    ASSERT_EQ(submenu->actions().size(), 1);
    EXPECT_EQ(picture(submenu->actions().value(0)->icon()), picture(AgentDot{"gemini"}.icon()));
}

}  // namespace
}  // namespace sonra
