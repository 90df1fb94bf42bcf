#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QPixmap>
#include <QWidget>
#include <vector>

#include "widgets/Accent.h"

namespace sonra {

/// Bars of the voice's spectrum with falling caps, quiet enough to read text over them. Main thread
/// only. Moves between the levels that it is given in the time that usually lies between them, and
/// repaints only what a bar gained or lost; level bars cost nothing.
class SpectrumBackdrop : public QWidget {
  public:
    explicit SpectrumBackdrop(QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    /// 0 to 1 for each bar; fewer or none are taken for silence.
    void setLevels(const std::vector<float>& levels, const std::vector<float>& peaks);

    static constexpr int barCount = 32;

  private:
    struct Bar {
        double level = 0;
        double peak = 0;

        bool operator==(const Bar&) const = default;
    };
    using Bars = std::vector<Bar>;

    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void move(double share);
    void show(Bars bars);
    [[nodiscard]] QRectF column(int index) const;
    [[nodiscard]] QRect extent(int index, const Bar& bar) const;
    [[nodiscard]] double top(double level) const;
    void copy(QPainter& painter, int index, double from, double to) const;
    void paintBar(QPainter& painter, int index) const;
    void preparePicture();

    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    Bars from_ = Bars(barCount);
    Bars shown_ = Bars(barCount);
    Bars goal_ = Bars(barCount);
    QBasicTimer moving_;
    QElapsedTimer since_;  ///< the goal was set
    QPixmap picture_;      ///< one bar at full height
};

}  // namespace sonra
