#pragma once

#include <QBasicTimer>
#include <QElapsedTimer>
#include <QWidget>

#include "widgets/Accent.h"

namespace sonra {

/// A line of status with a spinner before it where something is under way. Main thread only. Turns
/// only while it is seen and may move.
class StatusLine : public QWidget {
  public:
    StatusLine(double fontSize, QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    /// An empty text hides the line.
    void setStatus(const QString& text, bool spins);

    [[nodiscard]] QString text() const { return text_; }
    [[nodiscard]] QSize sizeHint() const override;

  private:
    void paintEvent(QPaintEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void turnOrRest();
    [[nodiscard]] QRect spinnerBox() const;
    void paintSpinner(QPainter& painter) const;

    const double fontSize_;
    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    QString text_;
    bool spins_ = false;
    QBasicTimer turning_;
    QElapsedTimer since_;
};

}  // namespace sonra
