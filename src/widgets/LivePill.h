#pragma once

#include <QAbstractButton>

#include "captions/LiveIndicator.h"
#include "widgets/Accent.h"

namespace sonra {

/// Where in the conversation the listener stands. Behind the present it is a button that leads back
/// to it, with a badge for what has come meanwhile; otherwise it only says so. Main thread only;
/// its owner connects `clicked`.
class LivePill : public QAbstractButton {
  public:
    explicit LivePill(QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    void setIndicator(const LiveIndicator& indicator, int newMessages);
    [[nodiscard]] QSize sizeHint() const override;

  private:
    void paintEvent(QPaintEvent* event) override;
    void enterEvent(QEnterEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void describe();
    [[nodiscard]] double pillWidth() const;
    [[nodiscard]] double badgeWidth() const;
    void paintPill(QPainter& painter) const;
    void paintBadge(QPainter& painter) const;

    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    bool history_ = false;
    QString label_;
    QString badge_;
    QFont labelFont_;
    QFont badgeFont_;
    bool hovered_ = false;
};

}  // namespace sonra
