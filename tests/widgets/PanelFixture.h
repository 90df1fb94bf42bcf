#pragma once

#include <gtest/gtest.h>

#include <QAbstractAnimation>
#include <QAbstractEventDispatcher>
#include <QAccessible>
#include <QApplication>
#include <QDeadlineTimer>
#include <QMouseEvent>
#include <QPaintEvent>
#include <functional>
#include <map>

#include "widgets/CaptionPanel.h"
#include "widgets/DesktopLook.h"

namespace sonra::test {

/// Runs the application's events until `condition` holds; false after the limit.
inline bool pumpUntil(const std::function<bool()>& condition, int limit = 10'000) {
    const QDeadlineTimer deadline(limit);
    while (!condition()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 5);
    }
    return true;
}

/// Counts what is painted, in all widgets.
class PaintWatch : public QObject {
  public:
    PaintWatch() { qApp->installEventFilter(this); }

    std::map<QString, QRegion> painted;  ///< by the name of the widget's class, from typeid
    int count = 0;

  private:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::Paint) return false;
        ++count;
        painted[QString::fromLatin1(typeid(*watched).name())] +=
            static_cast<QPaintEvent*>(event)->region();
        return false;
    }
};

/// A caption panel on the screenless platform, with the look in the test's hand.
class PanelFixture : public testing::Test {
  protected:
    void show() {
        panel.setFrame({{40, 50}, {820, 260}}, false);
        panel.orderFront();
        ASSERT_TRUE(pumpUntil([this] { return isCalm(); }));
    }
    /// Nothing is animated, armed or waiting to be painted.
    bool isCalm() {
        QCoreApplication::sendPostedEvents();
        PaintWatch watch;
        QCoreApplication::processEvents();
        return watch.count == 0 && timers() == 0;
    }
    /// Timers and animations that run in the panel and all its parts.
    int timers() {
        auto* dispatcher = QAbstractEventDispatcher::instance();
        auto objects = panel.findChildren<QObject*>();
        objects << &panel;
        qsizetype running = 0;
        for (auto* object : objects) running += dispatcher->registeredTimers(object).size();
        for (auto* animation : panel.findChildren<QAbstractAnimation*>())
            running += animation->state() == QAbstractAnimation::Running ? 1 : 0;
        return static_cast<int>(running);
    }
    QWidget* child(const QString& accessibleName) {
        for (auto* widget : panel.findChildren<QWidget*>())
            if (widget->accessibleName() == accessibleName) return widget;
        return nullptr;
    }
    static void mouse(QWidget& target, QEvent::Type type, QPointF place,
                      Qt::MouseButtons held = Qt::LeftButton) {
        QMouseEvent event(type, place, target.mapToGlobal(place),
                          type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton, held,
                          Qt::NoModifier);
        QCoreApplication::sendEvent(&target, &event);
    }
    void speak(const std::string& text, std::size_t word) {
        if (*model.chunkText != text) model.chunkText = text;
        const auto range = KaraokeMath::tokenize(text).at(word).range;
        model.activeWordRange = range;
        model.pastEndIndex = range.begin;
    }

    CaptionPanelModel model{22};
    DesktopLook look{Look{}};
    CaptionPanel panel{model, look};
};

}  // namespace sonra::test
