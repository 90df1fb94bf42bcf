#pragma once

#include <QWidget>

#include "captions/CaptionPanelModel.h"
#include "widgets/Accent.h"

namespace sonra {

class AgentChip;
class FiguresLabel;
class LivePill;
class RoundButton;

/// The row under the caption: transport buttons and counter at the left, agent and session in the
/// middle, speed and live pill at the right. Main thread only. Reads the model when told to and
/// calls its callbacks. What doesn't fit is left out, the session first.
class TransportRow : public QWidget {
  public:
    TransportRow(CaptionPanelModel& model, QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    /// Shows what the model holds now.
    void refresh();

    static constexpr int rowHeight = 36;

  private:
    void resizeEvent(QResizeEvent* event) override;
    void arrange();
    int arrangeLeft();
    int arrangeRight();
    void arrangeMiddle(int left, int right);

    CaptionPanelModel& model_;
    RoundButton* previous_;
    RoundButton* playPause_;
    RoundButton* next_;
    FiguresLabel* counter_;
    AgentChip* agent_;
    FiguresLabel* speed_;
    LivePill* pill_;
};

}  // namespace sonra
