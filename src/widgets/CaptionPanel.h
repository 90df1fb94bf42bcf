#pragma once

#include <QTimer>
#include <QVariantAnimation>
#include <QWidget>
#include <memory>

#include "captions/CaptionPanelModel.h"
#include "platform/FloatingPanel.h"
#include "widgets/PanelChrome.h"
#include "widgets/PanelDrag.h"

namespace sonra {

class HairlineProgress;
class KaraokeFlow;
class RoundButton;
class SpectrumBackdrop;
class StatusLine;
class TransportRow;

/// The caption window: text that lights up as it is spoken, over the voice's spectrum, with the
/// transport beneath. Main thread only. Paints the model, which it borrows and whose `onChange` it
/// takes for itself; keeps out of the way of the keyboard whatever is clicked in it. While nothing
/// changes it runs no timer and paints nothing.
class CaptionPanel : public QWidget, public FloatingPanel {
  public:
    /// Follows the desktop's look.
    explicit CaptionPanel(CaptionPanelModel& model);
    /// Follows a look that outlives it.
    CaptionPanel(CaptionPanelModel& model, DesktopLook& look);
    ~CaptionPanel() override;
    CaptionPanel(const CaptionPanel&) = delete;
    CaptionPanel& operator=(const CaptionPanel&) = delete;

    void setFrame(const Rect& frame, bool animated) override;
    [[nodiscard]] Rect frame() const override;
    void orderFront() override;
    void orderOut() override;
    [[nodiscard]] bool isVisible() const override { return shown_; }
    void setOpacity(double opacity) override;

    static constexpr int leastWidth = 420;
    static constexpr int leastHeight = 180;

  private:
    CaptionPanel(CaptionPanelModel& model, std::unique_ptr<DesktopLook> own);

    void paintEvent(QPaintEvent* event) override;
    void moveEvent(QMoveEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

    void prepareWindow();
    void connectParts();
    void noteChange(const void* field);
    void refreshText();
    void refreshStatus();
    void refreshPosition();
    void applyLook();
    void applyShape();
    void arrange();

    [[nodiscard]] QRect panelRect() const;
    [[nodiscard]] QRect windowGeometryFor(const QRect& panel) const;
    void settle();
    void endSettling();
    void noteGeometry();
    [[nodiscard]] bool fades() const;
    void showOpacity(double opacity);
    void fadeTo(double opacity, int duration);

    CaptionPanelModel& model_;
    std::unique_ptr<DesktopLook> ownLook_;
    DesktopLook& look_;
    PanelChrome chrome_;
    PanelDrag drag_;

    SpectrumBackdrop* spectrum_;
    KaraokeFlow* flow_;
    StatusLine* placeholder_;  ///< in the middle, where there are no words
    StatusLine* status_;       ///< above the words
    TransportRow* transport_;
    HairlineProgress* progress_;
    RoundButton* close_;

    QRect panel_;  ///< the panel's place on the desktop, as asked for or as the user left it
    bool shown_ = false;
    double opacity_ = 1;
    QVariantAnimation fading_{this};
    QVariantAnimation framing_{this};
    /// While it runs, changes of the frame are echoes of what was asked for.
    QTimer settling_{this};
    QTimer reporting_{this};
};

}  // namespace sonra
