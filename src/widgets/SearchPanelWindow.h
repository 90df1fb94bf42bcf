#pragma once

#include <QVariantAnimation>
#include <QWidget>
#include <memory>

#include "platform/SearchPanel.h"
#include "widgets/PanelChrome.h"

class QLabel;

namespace sonra {

class SearchEmptyState;
class SearchField;
class SearchRowList;

/// The search panel as a window: field, rows, hints. Main thread only; made once, shown on demand.
/// It takes the keyboard as it is shown, also out of another program's hands, and gives it back as
/// it hides; all keys go to the field. While nothing changes only the caret is painted.
class SearchPanelWindow : public QWidget, public SearchPanel {
  public:
    /// Follows the desktop's look.
    SearchPanelWindow();
    /// Follows a look that outlives it.
    explicit SearchPanelWindow(DesktopLook& look);
    ~SearchPanelWindow() override;
    SearchPanelWindow(const SearchPanelWindow&) = delete;
    SearchPanelWindow& operator=(const SearchPanelWindow&) = delete;

    void setFrame(const Rect& frame) override;
    void activate() override;
    void orderOut() override;
    [[nodiscard]] bool isVisible() const override { return shown_; }
    [[nodiscard]] std::string query() const override;
    void setQuery(const std::string& text) override;
    void setRows(const std::vector<SearchRow>& rows) override;
    void select(std::optional<std::size_t> row) override;
    void setEmptyText(const std::string& text) override;
    void setFooter(const std::string& text) override;
    void setScanningStrip(const std::string& text) override;
    void copy(const std::string& text) override;

  private:
    explicit SearchPanelWindow(std::unique_ptr<DesktopLook> own);

    void paintEvent(QPaintEvent* event) override;
    void closeEvent(QCloseEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

    void prepareWindow();
    void connectParts();
    void order(Command command);
    void present();
    void fadeIn();
    void applyLook();
    void applyShape();
    void arrange();
    [[nodiscard]] QRect panelRect() const;

    std::unique_ptr<DesktopLook> ownLook_;
    DesktopLook& look_;
    PanelChrome chrome_{Tokens::searchRadius};
    QPixmap glass_;  ///< the sign before the field

    SearchField* field_;
    SearchRowList* rows_;
    SearchEmptyState* empty_;
    QLabel* footer_;
    QLabel* strip_;

    QRect panel_{0, 0, 640, 420};  ///< the panel's place on the desktop
    bool shown_ = false;
    QVariantAnimation fading_{this};
};

}  // namespace sonra
