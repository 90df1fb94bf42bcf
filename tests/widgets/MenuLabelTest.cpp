#include "widgets/MenuLabel.h"

#include <gtest/gtest.h>

namespace sonra {
namespace {

using Role = MenuText::Role;

/// A piece of a title in no colour of its own.
MenuText plainText(std::string text) {
    return {std::move(text), Role::label, {}};
}

MenuRow row(std::vector<MenuText> title, std::string trailing = {},
            std::string imageDescription = {}) {
    MenuRow made;
    made.title = std::move(title);
    made.trailing = std::move(trailing);
    made.imageDescription = std::move(imageDescription);
    return made;
}

std::string byQt(const MenuRow& row) {
    return menuLabel(row, MenuDrawnBy::qt).toStdString();
}

std::string byPanel(const MenuRow& row) {
    return menuLabel(row, MenuDrawnBy::panel).toStdString();
}

TEST(MenuLabel, WhatAnImageMeansStandsAtTheRightEdge) {
    auto detach = row({{"CC", Role::chip, "claude-code"}, plainText("proj")}, "", "Detach");
    detach.image = MenuRow::Image::detach;
    EXPECT_EQ(byQt(detach), "CC  proj\tDetach");
    EXPECT_EQ(byPanel(detach), "CC  proj\tDetach");
}

TEST(MenuLabel, AValueComesBeforeWhatAnImageMeans) {
    EXPECT_EQ(byQt(row({plainText("Volume")}, "85%", "Loud")), "Volume\t85%");
    EXPECT_EQ(byQt(row({plainText("Volume")}, "85%")), "Volume\t85%");
}

TEST(MenuLabel, WithoutEitherThereIsNoTab) {
    EXPECT_EQ(byQt(row({plainText("About Sonra")})), "About Sonra");
    EXPECT_EQ(byPanel(row({plainText("About Sonra")})), "About Sonra");
    EXPECT_EQ(byQt(row({})), "");
}

TEST(MenuLabel, PiecesFollowEachOtherAndAChipKeepsItsDistance) {
    EXPECT_EQ(
        byQt(row({{"PI", Role::chip, "pi"}, plainText("proj"), {" ⎇ main", Role::tertiary, {}}})),
        "PI  proj ⎇ main");
    EXPECT_EQ(byQt(row({{"PI", Role::chip, "pi"}})), "PI");
}

TEST(MenuLabel, ThePanelsTextHasTheActiveDotThatQtShowsInTheIcon) {
    const auto active =
        row({{"● ", Role::activeDot, {}}, {"PI", Role::chip, "pi"}, plainText("proj")});
    EXPECT_EQ(byPanel(active), "● PI  proj");
    EXPECT_EQ(byQt(active), "PI  proj");
}

TEST(MenuLabel, IsOneLineWithOneTab) {
    EXPECT_EQ(byQt(row({plainText("a\nb\tc\rd\x01"
                                  "e\u2028f\u2029g")},
                       "1\t2", "x")),
              "a b c d e f g\t1 2");
    EXPECT_EQ(byQt(row({plainText("a")}, "", "De\ntach\t")), "a\tDe tach ");
}

TEST(MenuLabel, KeyMarksAreShownAsTheyAre) {
    const auto nasty = row({plainText("R&D_notes && more")}, "", "In & _out");
    EXPECT_EQ(byQt(nasty), "R&&D_notes &&&& more\tIn && _out");
    EXPECT_EQ(byPanel(nasty), "R&&D__notes && more\tIn & __out");
    EXPECT_EQ(byPanel(row({plainText("ends with &")})), "ends with &");
}

}  // namespace
}  // namespace sonra
