#pragma once

#include <QAbstractButton>
#include <QPixmap>
#include <QVariantAnimation>

#include "widgets/Accent.h"

namespace sonra {

/// A round button with one of the program's icons. Never takes the keyboard focus. Main thread
/// only; its owner connects `clicked`. What it is called goes to its tooltip and to assistive
/// technology alike.
class RoundButton : public QAbstractButton {
  public:
    enum class Kind {
        bare,   ///< an icon; a ground only under the pointer
        quiet,  ///< on a faint ground
        accent  ///< on the agent's gradient
    };

    RoundButton(Kind kind, int diameter, QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    void setSymbol(const QString& icon, const QString& name);

  private:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    [[nodiscard]] bool hitButton(const QPoint& place) const override;
    void warm(double goal);
    void paintGround(QPainter& painter) const;
    [[nodiscard]] QColor ink() const;

    const Kind kind_;
    const int diameter_;
    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    QString symbol_;
    QPixmap icon_;
    QVariantAnimation hovering_{this};
    double warmth_ = 0;  ///< 1 under the pointer
};

}  // namespace sonra
