#include "widgets/CaptionPanel.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QElapsedTimer>

#include "PanelFixture.h"
#include "widgets/HairlineProgress.h"
#include "widgets/KaraokeFlow.h"
#include "widgets/SpectrumBackdrop.h"

namespace sonra::test {
namespace {

using CaptionPanelTest = PanelFixture;
constexpr auto text = "one two three four five six seven";

void press(QWidget* widget) {
    ASSERT_NE(widget, nullptr);
    auto* interface = QAccessible::queryAccessibleInterface(widget);
    ASSERT_NE(interface, nullptr);
    ASSERT_NE(interface->actionInterface(), nullptr);
    interface->actionInterface()->doAction(QAccessibleActionInterface::pressAction());
}

/// What was painted while the loop ran for `time` milliseconds.
int paintsWithin(int time) {
    PaintWatch watch;
    QElapsedTimer since;
    since.start();
    pumpUntil([&] { return since.elapsed() >= time; });
    return watch.count;
}

/// So often something is painted sooner or later.
bool comesToPaint(int times = 1) {
    PaintWatch watch;
    return pumpUntil([&] { return watch.count >= times; });
}

TEST_F(CaptionPanelTest, PaintsNothingWhileNothingChanges) {
    speak(text, 2);
    model.status = NarrationStatus{NarrationStatus::Phase::playing};
    model.isPlaying = true;
    show();
    EXPECT_EQ(paintsWithin(400), 0);
    EXPECT_EQ(timers(), 0);
    // The watch does see a change.
    speak(text, 3);
    EXPECT_TRUE(comesToPaint());
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(paintsWithin(400), 0);
}

TEST_F(CaptionPanelTest, EqualLevelsPaintNothing) {
    model.spectrum = std::vector<float>(32, 0.5F);
    model.spectrumPeaks = std::vector<float>(32, 0.6F);
    show();
    model.spectrum = std::vector<float>(32, 0.5F);
    EXPECT_EQ(paintsWithin(150), 0);
    model.spectrum = std::vector<float>(32, 0.7F);
    EXPECT_TRUE(comesToPaint());
}

TEST_F(CaptionPanelTest, AHiddenPanelPaintsAndAnimatesNothing) {
    speak(text, 0);
    model.status = NarrationStatus{NarrationStatus::Phase::synthesizing};
    for (std::size_t word = 0; word < 5; ++word) speak(text, word);
    EXPECT_EQ(paintsWithin(150), 0);
    EXPECT_EQ(timers(), 0);
}

TEST_F(CaptionPanelTest, TheSpinnerTurnsOnlyWhileSomethingIsUnderWay) {
    model.status = NarrationStatus{NarrationStatus::Phase::warming};
    panel.setFrame({{0, 0}, {820, 260}}, false);
    panel.orderFront();
    paintsWithin(300);
    EXPECT_TRUE(comesToPaint(3));
    auto still = look.look();
    still.reducedMotion = true;
    look.set(still);
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(paintsWithin(200), 0);
    look.set(Look{});
    model.status = NarrationStatus{};
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(paintsWithin(200), 0);
}

TEST_F(CaptionPanelTest, AWordRepaintsNoMoreThanItsSurroundings) {
    speak(text, 1);
    show();
    PaintWatch watch;
    speak(text, 2);
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    const auto flow = watch.painted[typeid(KaraokeFlow).name()];
    ASSERT_FALSE(flow.isEmpty());
    EXPECT_LT(flow.boundingRect().width(), 820 / 2);
    EXPECT_LT(flow.boundingRect().height(), 120);
}

TEST_F(CaptionPanelTest, ButtonsCallTheModel) {
    std::vector<std::string> calls;
    model.onPrev = [&] { calls.emplace_back("previous"); };
    model.onPlayPause = [&] { calls.emplace_back("playPause"); };
    model.onNext = [&] { calls.emplace_back("next"); };
    panel.onCloseRequested = [&] { calls.emplace_back("close"); };
    show();
    const auto pressAndWait = [&](const char* name) {
        const auto before = calls.size();
        press(child(name));
        EXPECT_TRUE(pumpUntil([&] { return calls.size() > before; })) << name;
    };
    pressAndWait("Previous");
    pressAndWait("Play");
    model.isPlaying = true;
    EXPECT_EQ(child("Play"), nullptr);
    pressAndWait("Pause");
    pressAndWait("Next");
    pressAndWait("Hide captions");
    EXPECT_EQ(calls,
              (std::vector<std::string>{"previous", "playPause", "playPause", "next", "close"}));
    EXPECT_TRUE(panel.isVisible());
}

TEST_F(CaptionPanelTest, NothingTakesTheFocus) {
    show();
    EXPECT_TRUE(panel.windowFlags() & Qt::WindowDoesNotAcceptFocus);
    for (const auto* widget : panel.findChildren<QWidget*>())
        EXPECT_EQ(widget->focusPolicy(), Qt::NoFocus) << widget->accessibleName().toStdString();
}

TEST_F(CaptionPanelTest, ThePillLeadsBackOnlyFromHistory) {
    int jumps = 0;
    model.onJumpToLive = [&] { ++jumps; };
    show();
    EXPECT_EQ(child("Jump back to live"), nullptr);
    model.liveIndicator = LiveIndicator{LiveIndicator::Live{}};
    auto* pill = qobject_cast<QAbstractButton*>(child("LIVE"));
    ASSERT_NE(pill, nullptr);
    EXPECT_TRUE(pill->isVisible());
    pill->click();
    EXPECT_EQ(jumps, 0);
    model.liveIndicator = LiveIndicator{LiveIndicator::History{3, 12}};
    model.newLiveCount = 2;
    EXPECT_EQ(pill->toolTip(), "Jump back to live");
    EXPECT_EQ(pill->accessibleName(), "Jump back to live");
    EXPECT_EQ(pill->accessibleDescription(), QString::fromUtf8("← 3 / 12 +2 new"));
    press(pill);
    EXPECT_TRUE(pumpUntil([&] { return jumps == 1; }));
    model.liveIndicator = LiveIndicator{};
    EXPECT_FALSE(pill->isVisible());
}

TEST_F(CaptionPanelTest, TheCounterHidesWithoutATotal) {
    show();
    model.chunkIndex = 2;
    model.chunkTotal = 5;
    auto* counter = child("2 of 5");
    ASSERT_NE(counter, nullptr);
    EXPECT_TRUE(counter->isVisible());
    model.chunkTotal = 0;
    EXPECT_FALSE(counter->isVisible());
}

TEST_F(CaptionPanelTest, TheTextIsReadableByAssistiveTechnology) {
    speak(text, 0);
    model.theme = HarnessTheme::current("codex");
    model.sessionLabel = std::string("sonra · main");
    show();
    EXPECT_NE(child(text), nullptr);
    EXPECT_NE(child(QString::fromUtf8("Codex CLI, sonra · main")), nullptr);
    EXPECT_NE(child("Speed 1.00x"), nullptr);
}

TEST_F(CaptionPanelTest, PressAndDragOnTheProgressLineScrub) {
    std::vector<double> scrubs;
    model.onScrub = [&](double fraction) { scrubs.push_back(fraction); };
    show();
    auto* line = child("Position");
    ASSERT_NE(line, nullptr);
    ASSERT_EQ(line->width(), 820);
    mouse(*line, QEvent::MouseButtonPress, {205, 8});
    ASSERT_EQ(scrubs.size(), 1U);
    EXPECT_DOUBLE_EQ(scrubs.back(), 0.25);
    const std::map<double, double> fractions{{206, 206.0 / 820}, {615, 0.75}, {-40, 0}, {900, 1}};
    for (const auto& [x, fraction] : fractions) {
        mouse(*line, QEvent::MouseMove, {x, 8});
        EXPECT_DOUBLE_EQ(scrubs.back(), fraction) << x;
    }
    mouse(*line, QEvent::MouseButtonRelease, {900, 8}, Qt::NoButton);
    const auto count = scrubs.size();
    mouse(*line, QEvent::MouseMove, {100, 8}, Qt::NoButton);
    EXPECT_EQ(scrubs.size(), count);
}

TEST_F(CaptionPanelTest, TheFrameIsThePanelWithoutItsShadow) {
    const Rect frame{{120, 90}, {600, 240}};
    panel.setFrame(frame, false);
    EXPECT_EQ(panel.frame(), frame);
    EXPECT_GT(panel.width(), 600);
    auto flat = look.look();
    flat.composited = false;
    look.set(flat);
    EXPECT_EQ(panel.frame(), frame);
    EXPECT_EQ(panel.geometry(), QRect(120, 90, 600, 240));
    EXPECT_FALSE(panel.mask().isEmpty());
    EXPECT_FALSE(panel.mask().contains(QPoint(1, 1)));
    EXPECT_TRUE(panel.mask().contains(QPoint(300, 1)));
    look.set(Look{});
    EXPECT_TRUE(panel.mask().isEmpty());
}

TEST_F(CaptionPanelTest, AShadowThatComesLongAfterThePanelLeavesTheFrame) {
    auto flat = look.look();
    flat.composited = false;
    look.set(flat);
    int reports = 0;
    panel.onFrameChanged = [&] { ++reports; };
    const Rect least{{120, 90}, {380, 120}};
    panel.setFrame(least, false);
    panel.orderFront();
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    const auto frame = panel.frame();
    look.set(Look{});
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(panel.frame(), frame);
    look.set(flat);
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(panel.frame(), frame);
    EXPECT_EQ(reports, 0);
}

TEST_F(CaptionPanelTest, WhatTheOwnerAsksForIsNotReported) {
    int reports = 0;
    panel.onFrameChanged = [&] { ++reports; };
    show();
    panel.setFrame({{200, 200}, {500, 200}}, false);
    panel.setFrame({{20, 20}, {640, 220}}, true);
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(panel.geometry().marginsRemoved({40, 26, 40, 58}), QRect(20, 20, 640, 220));
    EXPECT_EQ(reports, 0);
}

TEST_F(CaptionPanelTest, ADragMovesAndReportsOnce) {
    int reports = 0;
    panel.onFrameChanged = [&] { ++reports; };
    show();
    const QPoint grip = panel.rect().center();
    const auto before = panel.frame();
    mouse(panel, QEvent::MouseButtonPress, grip);
    mouse(panel, QEvent::MouseMove, grip + QPoint(2, 1));
    EXPECT_EQ(panel.frame(), before) << "a click is no drag";
    mouse(panel, QEvent::MouseMove, grip + QPoint(30, 20));
    mouse(panel, QEvent::MouseButtonRelease, grip, Qt::NoButton);
    ASSERT_TRUE(pumpUntil([&] { return reports > 0; }));
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(reports, 1);
    EXPECT_EQ(panel.frame().origin, (Point{before.origin.x + 30, before.origin.y + 20}));
    EXPECT_EQ(panel.frame().size, before.size);
}

TEST_F(CaptionPanelTest, AnEdgeResizesDownToTheLeastSize) {
    show();
    const QPoint grip(panel.width() - 40 - 2, panel.height() / 2);
    mouse(panel, QEvent::MouseButtonPress, grip);
    mouse(panel, QEvent::MouseMove, grip - QPoint(100, 0));
    ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    EXPECT_EQ(panel.geometry().width(), 820 - 100 + 80);
    panel.setFrame({{0, 0}, {100, 50}}, false);
    EXPECT_EQ(panel.geometry().marginsRemoved({40, 26, 40, 58}).size(), QSize(420, 180));
}

TEST_F(CaptionPanelTest, ClosingByTheDesktopAsksTheOwner) {
    int asked = 0;
    panel.onCloseRequested = [&] { ++asked; };
    show();
    panel.close();
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(panel.isVisible());
    panel.orderOut();
    EXPECT_FALSE(panel.isVisible());
    const QWidget& window = panel;
    EXPECT_TRUE(pumpUntil([&] { return !window.isVisible(); }));
}

TEST_F(CaptionPanelTest, StatusStandsInTheMiddleOnlyWithoutWords) {
    look.set({.reducedMotion = true});
    model.status = NarrationStatus{NarrationStatus::Phase::connecting};
    show();
    auto* line = child("Connecting to session…");
    ASSERT_NE(line, nullptr);
    EXPECT_NEAR(line->geometry().center().x(), panel.rect().center().x(), 1);
    model.chunkText = std::string(text);
    EXPECT_FALSE(line->isVisible());
    line = child("Connecting to session…");
    ASSERT_NE(line, nullptr);
    EXPECT_TRUE(line->isVisible());
    EXPECT_LT(line->geometry().bottom(), 60);
    model.status = NarrationStatus{NarrationStatus::Phase::playing};
    EXPECT_FALSE(line->isVisible());
    // The placeholder that the owner puts into an empty window counts as no words.
    model.status = NarrationStatus{};
    model.chunkText = std::string("Waiting for narration…");
    EXPECT_EQ(child("Waiting for narration…")->geometry().center().x(), panel.rect().center().x());
}

TEST_F(CaptionPanelTest, WordsThatStandThereWhileNothingPlaysNeedNoComment) {
    look.set({.reducedMotion = true});
    model.chunkText = std::string(text);
    model.status = NarrationStatus{NarrationStatus::Phase::synthesizing};
    show();
    auto* line = child("Synthesizing…");
    ASSERT_NE(line, nullptr);
    EXPECT_TRUE(line->isVisible());
    model.status = NarrationStatus{};
    EXPECT_FALSE(line->isVisible());
    EXPECT_EQ(line->accessibleName(), "");
    EXPECT_EQ(child("Waiting for narration…"), nullptr);
    EXPECT_TRUE(child(text)->isVisible());
}

TEST_F(CaptionPanelTest, APauseIsSaidAboveTheWords) {
    look.set({.reducedMotion = true});
    model.chunkText = std::string(text);
    model.status = NarrationStatus::paused(0);
    show();
    auto* line = child("Paused");
    ASSERT_NE(line, nullptr);
    EXPECT_TRUE(line->isVisible());
    EXPECT_TRUE(child(text)->isVisible());
    EXPECT_LE(line->geometry().bottom(), child(text)->geometry().top() + 24);
    EXPECT_LT(line->geometry().bottom(), 60);
    model.status = NarrationStatus::paused(3);
    EXPECT_EQ(line->accessibleName(), QString::fromUtf8("Paused · 3 queued"));
    EXPECT_TRUE(line->isVisible());
    model.status = NarrationStatus{};
    EXPECT_FALSE(line->isVisible());
}

}  // namespace
}  // namespace sonra::test
