#pragma once

#include <QColor>
#include <QWidget>

namespace sonra {

/// What stands in the middle where there are no rows, in a few lines at most; a long text loses its
/// middle. Main thread only.
class SearchEmptyState : public QWidget {
  public:
    explicit SearchEmptyState(QWidget* parent);

    void setColor(const QColor& color);
    void setText(const QString& text);

  private:
    void paintEvent(QPaintEvent* event) override;

    QColor color_;
    QString text_;
};

}  // namespace sonra
