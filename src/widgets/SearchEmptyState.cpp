#include "widgets/SearchEmptyState.h"

#include <QFontMetricsF>
#include <QPainter>
#include <QTextOption>

#include "widgets/Tokens.h"

namespace sonra {
namespace {

constexpr double hintFontSize = 14;
constexpr int sideMargin = 64;
/// Lines break before they are full.
constexpr double linesWorth = 2.6;

}  // namespace

SearchEmptyState::SearchEmptyState(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFont(Tokens::font(hintFontSize));
}

void SearchEmptyState::setColor(const QColor& color) {
    color_ = color;
    update();
}

void SearchEmptyState::setText(const QString& text) {
    if (text == text_) return;
    text_ = text;
    setAccessibleName(text);
    update();
}

void SearchEmptyState::paintEvent(QPaintEvent* /*event*/) {
    const auto box = QRectF(rect()).adjusted(sideMargin, 0, -sideMargin, 0);
    const auto shown = QFontMetricsF(font()).elidedText(text_.simplified(), Qt::ElideMiddle,
                                                        box.width() * linesWorth);
    QTextOption option(Qt::AlignCenter);
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    QPainter painter(this);
    painter.setFont(font());
    painter.setPen(color_);
    painter.drawText(box, shown, option);
}

}  // namespace sonra
