#pragma once

#include <QBasicTimer>
#include <QLineEdit>
#include <functional>

#include "platform/SearchPanel.h"
#include "widgets/Accent.h"

namespace sonra {

/// Where the query is typed. Main thread only. Keeps the keyboard whatever is pressed; the keys
/// that belong to the panel are reported instead of being typed, and no key copies text out of it.
/// Its caret has the accent's colour, blinks as the desktop's carets do and stands still where
/// motion is reduced.
class SearchField : public QLineEdit {
  public:
    explicit SearchField(QWidget* parent);

    std::function<void(SearchPanel::Command command)> onCommand;

    void setLook(const Look& look, const Accent& accent);

  private:
    void keyPressEvent(QKeyEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    bool focusNextPrevChild(bool next) override;
    void timerEvent(QTimerEvent* event) override;
    void paintEvent(QPaintEvent* event) override;

    bool removesText(const QKeyEvent& event);
    void restartCaret();
    [[nodiscard]] QRect caret() const;

    QColor caretColor_;
    bool isStill_ = false;
    bool isCaretOn_ = false;
    QBasicTimer blinking_;
};

}  // namespace sonra
