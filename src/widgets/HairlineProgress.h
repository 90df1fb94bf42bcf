#pragma once

#include <QVariantAnimation>
#include <QWidget>
#include <functional>

#include "widgets/Accent.h"

namespace sonra {

/// How far the chunk is, as a line along the panel's lower edge. It grows under the pointer, and a
/// press or a drag on it scrubs. Main thread only. Repaints only when the line's end moves to
/// another pixel.
class HairlineProgress : public QWidget {
  public:
    explicit HairlineProgress(QWidget* parent);

    std::function<void(double fraction)> onScrub;

    void setLook(const Look& look, const Accent& accent);
    void setFraction(double fraction);
    [[nodiscard]] double fraction() const { return fraction_; }

    /// The height in which the pointer is noticed.
    static constexpr int reach = 12;
    /// At either end it leaves the pointer to the panel, whose corners resize it.
    static constexpr int corner = 12;

  private:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    [[nodiscard]] bool isCorner(double x) const;
    void scrub(double x);
    void showCursor(double x);
    void grow(double goal);
    [[nodiscard]] double end() const;

    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    double fraction_ = 0;
    bool scrubbing_ = false;
    double growth_ = 0;  ///< 1 under the pointer
    QVariantAnimation growing_{this};
};

}  // namespace sonra
