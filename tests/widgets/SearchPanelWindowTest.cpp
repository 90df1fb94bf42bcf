#include "widgets/SearchPanelWindow.h"

#include <gtest/gtest.h>

#include <QClipboard>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QLabel>
#include <QScrollBar>

#include "PanelFixture.h"
#include "widgets/SearchEmptyState.h"
#include "widgets/SearchField.h"
#include "widgets/SearchRowList.h"

namespace sonra::test {
namespace {

using Command = SearchPanel::Command;

std::vector<SearchRow> rowsNamed(int count) {
    std::vector<SearchRow> rows;
    for (int i = 0; i < count; ++i) {
        SearchRow row;
        row.pieces = {{"● ", SearchRow::Role::marker},
                      {"row " + std::to_string(i), SearchRow::Role::words}};
        row.source = "claude-code";
        rows.push_back(row);
    }
    return rows;
}

class SearchPanelWindowTest : public testing::Test {
  protected:
    SearchPanelWindowTest() {
        panel.setFrame({{100, 120}, {640, 420}});
        panel.onQueryChanged = [this] { queries.push_back(panel.query()); };
        panel.onCommand = [this](Command command) { commands.push_back(command); };
        panel.onSelect = [this](std::size_t row) { clicked.push_back(row); };
    }
    void show() {
        panel.activate();
        ASSERT_TRUE(pumpUntil([this] { return field()->hasFocus(); }));
        QCoreApplication::processEvents();
    }
    void press(int key, Qt::KeyboardModifiers modifiers = {}, const QString& text = {}) {
        for (const auto type : {QEvent::KeyPress, QEvent::KeyRelease}) {
            QKeyEvent event(type, key, modifiers, text);
            QCoreApplication::sendEvent(field(), &event);
        }
    }
    void type(const QString& text) {
        for (const auto letter : text) press(letter.toUpper().unicode(), {}, letter);
    }
    void mouse(QEvent::Type type, int row) {
        auto* viewport = rows()->viewport();
        const auto place = rows()->visualRect(rows()->model()->index(row, 0)).center();
        QMouseEvent event(type, place, viewport->mapToGlobal(place), Qt::LeftButton,
                          type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton, {});
        QCoreApplication::sendEvent(viewport, &event);
    }
    void click(int row) {
        mouse(QEvent::MouseButtonPress, row);
        mouse(QEvent::MouseButtonRelease, row);
    }
    /// What was painted while the loop ran for `time` milliseconds.
    static QRegion paintedWithin(int time) {
        PaintWatch watch;
        QElapsedTimer since;
        since.start();
        pumpUntil([&] { return since.elapsed() >= time; });
        QRegion all;
        for (const auto& [name, region] : watch.painted)
            for (const auto& part : region)
                if (part.width() > all.boundingRect().width()) all = part;
        return all;
    }
    SearchField* field() { return panel.findChild<SearchField*>(); }
    SearchRowList* rows() { return panel.findChild<SearchRowList*>(); }
    SearchEmptyState* empty() {
        for (auto* child : panel.findChildren<QWidget*>())
            if (auto* found = dynamic_cast<SearchEmptyState*>(child)) return found;
        return nullptr;
    }
    QLabel* hint(const QString& text) {
        for (auto* label : panel.findChildren<QLabel*>())
            if (label->text() == text) return label;
        return nullptr;
    }

    DesktopLook look{Look{}};
    SearchPanelWindow panel{look};
    std::vector<std::string> queries;
    std::vector<Command> commands;
    std::vector<std::size_t> clicked;
};

TEST_F(SearchPanelWindowTest, WhatIsTypedIsReported) {
    show();
    type("ab");
    EXPECT_EQ(queries, (std::vector<std::string>{"a", "ab"}));
    EXPECT_TRUE(commands.empty());
}

TEST_F(SearchPanelWindowTest, ThePanelsKeysAreReportedAndNotTyped) {
    show();
    press(Qt::Key_Down);
    press(Qt::Key_Up);
    press(Qt::Key_Return, {}, "\r");
    press(Qt::Key_Enter, Qt::KeypadModifier, "\r");
    press(Qt::Key_C, Qt::ControlModifier);
    press(Qt::Key_Escape);
    EXPECT_EQ(commands, (std::vector{Command::moveDown, Command::moveUp, Command::activate,
                                     Command::activate, Command::copy, Command::cancel}));
    EXPECT_EQ(panel.query(), "");
    EXPECT_TRUE(queries.empty());
}

TEST_F(SearchPanelWindowTest, TheCopyChordNeverTakesTextOutOfTheField) {
    panel.copy("before");
    show();
    type("secret");
    field()->selectAll();
    press(Qt::Key_C, Qt::ControlModifier);
    press(Qt::Key_Insert, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
    EXPECT_EQ(commands.size(), 2U);
}

TEST_F(SearchPanelWindowTest, TheKeysThatCutRemoveTextAndLeaveTheClipboardAlone) {
    panel.copy("before");
    show();
    const std::pair<int, Qt::KeyboardModifiers> cuts[] = {{Qt::Key_X, Qt::ControlModifier},
                                                          {Qt::Key_Delete, Qt::ShiftModifier}};
    for (const auto& [key, modifiers] : cuts) {
        panel.setQuery("secret");
        queries.clear();
        field()->setSelection(0, 3);
        press(key, modifiers);
        EXPECT_EQ(queries, (std::vector<std::string>{"ret"}));
        press(key, modifiers);
        EXPECT_EQ(queries.size(), 1U) << "nothing is selected";
    }
    field()->setCursorPosition(1);
    for (const auto letter : {Qt::Key_K, Qt::Key_U}) press(letter, Qt::ControlModifier);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), "before");
}

TEST_F(SearchPanelWindowTest, AQueryOfItsOwnersIsShownAndNotReported) {
    panel.setQuery("ab");
    show();
    EXPECT_EQ(panel.query(), "ab");
    EXPECT_EQ(field()->selectedText(), "ab");
    EXPECT_TRUE(queries.empty());
}

TEST_F(SearchPanelWindowTest, InTextOfBothDirectionsTheCaretIsOneStroke) {
    look.set({.reducedMotion = true});
    show();
    panel.setQuery("\u05e9\u05dc\u05d5\u05dd abc");
    for (const int position : {0, 2, 5, 8}) {
        field()->setCursorPosition(position);
        field()->setFocus();
        const auto with = field()->grab().toImage();
        field()->clearFocus();
        const auto without = field()->grab().toImage();
        QRegion changed;
        for (int y = 0; y < with.height(); ++y)
            for (int x = 0; x < with.width(); ++x)
                if (with.pixel(x, y) != without.pixel(x, y)) changed += QRect(x, y, 1, 1);
        EXPECT_EQ(changed.boundingRect().width(), 2) << position;
        EXPECT_GT(changed.boundingRect().height(), 15) << position;
    }
}

TEST_F(SearchPanelWindowTest, TabLeavesTheKeyboardInTheField) {
    panel.setRows(rowsNamed(3));
    show();
    press(Qt::Key_Tab, {}, "\t");
    press(Qt::Key_Backtab, Qt::ShiftModifier);
    EXPECT_TRUE(field()->hasFocus());
    EXPECT_EQ(panel.query(), "");
}

TEST_F(SearchPanelWindowTest, OpeningSelectsTheQueryToBeOvertyped) {
    field()->setText("ab");
    show();
    EXPECT_EQ(field()->selectedText(), "ab");
    type("x");
    EXPECT_EQ(panel.query(), "x");
    EXPECT_EQ(queries, (std::vector<std::string>{"x"}));
}

TEST_F(SearchPanelWindowTest, AClickSelectsAndADoubleClickActivates) {
    panel.setRows(rowsNamed(5));
    panel.select(0);
    show();
    click(2);
    EXPECT_EQ(clicked, (std::vector<std::size_t>{2}));
    EXPECT_TRUE(commands.empty());
    click(3);
    mouse(QEvent::MouseButtonDblClick, 3);
    EXPECT_EQ(commands, (std::vector{Command::activate}));
    EXPECT_TRUE(field()->hasFocus());
}

TEST_F(SearchPanelWindowTest, WhatTheOwnerSelectsIsNotReported) {
    panel.setRows(rowsNamed(5));
    panel.select(3);
    panel.setRows(rowsNamed(2));
    panel.select(1);
    panel.select(std::nullopt);
    EXPECT_TRUE(clicked.empty());
}

TEST_F(SearchPanelWindowTest, ThirteenRowsScrollToTheSelectedOne) {
    panel.setRows(rowsNamed(13));
    panel.select(0);
    show();
    auto* bar = rows()->verticalScrollBar();
    ASSERT_EQ(bar->value(), 0);
    ASSERT_GT(bar->maximum(), 0);
    panel.select(12);
    EXPECT_EQ(bar->value(), bar->maximum());
    const auto shown = rows()->visualRect(rows()->currentIndex());
    EXPECT_TRUE(rows()->viewport()->rect().contains(shown));
    EXPECT_EQ(shown.height(), 36);
    EXPECT_EQ(shown.top() % 36, 0) << "the row at the top is a whole one";
    panel.setRows(rowsNamed(13));
    EXPECT_EQ(bar->value(), 0);
}

TEST_F(SearchPanelWindowTest, WithoutRowsItSaysWhyAndWithRowsItDoesNot) {
    panel.setEmptyText("No matches for zzz.");
    panel.setRows({});
    show();
    EXPECT_TRUE(empty()->isVisible());
    EXPECT_FALSE(rows()->isVisible());
    EXPECT_EQ(empty()->accessibleName(), "No matches for zzz.");
    panel.setRows(rowsNamed(1));
    EXPECT_FALSE(empty()->isVisible());
    EXPECT_TRUE(rows()->isVisible());
}

TEST_F(SearchPanelWindowTest, TheStripShowsOnlyWithAText) {
    show();
    panel.setFooter("↵ expand · esc dismiss");
    panel.setScanningStrip("Indexing… (3 / 9)");
    ASSERT_NE(hint("Indexing… (3 / 9)"), nullptr);
    EXPECT_TRUE(hint("Indexing… (3 / 9)")->isVisible());
    EXPECT_TRUE(hint("↵ expand · esc dismiss")->isVisible());
    panel.setScanningStrip("");
    EXPECT_FALSE(hint("")->isVisible());
}

TEST_F(SearchPanelWindowTest, ThePanelIsWhereItIsPutWithItsShadowAround) {
    show();
    EXPECT_TRUE(panel.geometry().contains(QRect(100, 120, 640, 420)));
    EXPECT_GT(panel.width(), 640);
    EXPECT_TRUE(panel.mask().isEmpty());
    look.set({.composited = false});
    EXPECT_EQ(panel.geometry(), QRect(100, 120, 640, 420));
    EXPECT_FALSE(panel.mask().contains(QPoint(0, 0)));
    EXPECT_TRUE(panel.mask().contains(QPoint(12, 12)));
}

TEST_F(SearchPanelWindowTest, ScreenReadersHearWhatIsThere) {
    panel.setRows(rowsNamed(3));
    panel.select(1);
    show();
    auto* typed = QAccessible::queryAccessibleInterface(field());
    EXPECT_EQ(typed->role(), QAccessible::EditableText);
    EXPECT_EQ(typed->text(QAccessible::Name), "Search");
    EXPECT_EQ(typed->text(QAccessible::Description), "● row 1");
    auto* found = QAccessible::queryAccessibleInterface(rows());
    EXPECT_EQ(found->role(), QAccessible::List);
    EXPECT_EQ(found->text(QAccessible::Name), "Results");
    ASSERT_EQ(found->childCount(), 3);
    EXPECT_EQ(found->child(2)->role(), QAccessible::ListItem);
    EXPECT_EQ(found->child(2)->text(QAccessible::Name), "● row 2");
    EXPECT_TRUE(found->child(1)->state().selected);
}

TEST_F(SearchPanelWindowTest, AtRestOnlyTheCaretIsPainted) {
    panel.setRows(rowsNamed(13));
    panel.select(0);
    show();
    paintedWithin(200);
    const auto atRest = paintedWithin(QApplication::cursorFlashTime() + 200);
    EXPECT_FALSE(atRest.isEmpty()) << "the caret blinks";
    EXPECT_LE(atRest.boundingRect().width(), 16);
    EXPECT_LE(atRest.boundingRect().height(), 40);
    // The watch does see a change.
    panel.select(5);
    EXPECT_GT(paintedWithin(100).boundingRect().width(), 100);
    panel.orderOut();
    paintedWithin(50);
    EXPECT_TRUE(paintedWithin(QApplication::cursorFlashTime() + 200).isEmpty());
}

TEST_F(SearchPanelWindowTest, ClosingItIsDismissingIt) {
    show();
    panel.close();
    EXPECT_EQ(commands, (std::vector{Command::cancel}));
    EXPECT_TRUE(panel.isVisible());
}

TEST_F(SearchPanelWindowTest, EveryLookPaintsItsOwnGround) {
    panel.setRows(rowsNamed(3));
    show();
    const auto groundOf = [this] {
        return panel.grab().toImage().pixelColor(panel.width() / 2, panel.height() / 2);
    };
    look.set({.dark = true, .composited = false});
    EXPECT_EQ(groundOf(), QColor(24, 24, 28));
    look.set({.dark = false, .composited = false});
    EXPECT_EQ(groundOf(), QColor(250, 250, 252));
    look.set({.dark = false, .highContrast = true});
    EXPECT_EQ(groundOf(), QColor(Qt::white));
}

}  // namespace
}  // namespace sonra::test
