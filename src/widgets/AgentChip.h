#pragma once

#include <QWidget>

#include "frame/HarnessTheme.h"
#include "widgets/Accent.h"

namespace sonra {

/// Whose words these are: the agent's chip and, where there is room, the session beside it. Main
/// thread only.
class AgentChip : public QWidget {
  public:
    explicit AgentChip(QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    void setAgent(const HarnessTheme& theme, const QString& session);
    /// The width that shows all.
    [[nodiscard]] QSize sizeHint() const override;
    [[nodiscard]] int chipWidth() const;

  private:
    void paintEvent(QPaintEvent* event) override;

    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    QString chip_;
    QString session_;
    QFont chipFont_;
    QFont sessionFont_;
};

}  // namespace sonra
