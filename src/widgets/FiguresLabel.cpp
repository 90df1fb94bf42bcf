#include "widgets/FiguresLabel.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace sonra {
namespace {

double figureWidth(const QFontMetricsF& metrics) {
    double widest = 0;
    for (char figure = '0'; figure <= '9'; ++figure)
        widest = std::max(widest, metrics.horizontalAdvance(QLatin1Char(figure)));
    return widest;
}

/// Calls `draw(piece, x)` for runs of figures one by one and for all between them; gives the width.
template <typename Draw>
double walk(const QString& text, const QFontMetricsF& metrics, const Draw& draw) {
    const double cell = figureWidth(metrics);
    double x = 0;
    qsizetype at = 0;
    while (at < text.size()) {
        auto end = at;
        while (end < text.size() && !text[end].isDigit()) ++end;
        if (end > at) {
            const auto piece = text.mid(at, end - at);
            draw(piece, x);
            x += metrics.horizontalAdvance(piece);
            at = end;
            continue;
        }
        const QString figure(text[at++]);
        draw(figure, x + (cell - metrics.horizontalAdvance(figure)) / 2);
        x += cell;
    }
    return x;
}

}  // namespace

FiguresLabel::FiguresLabel(double fontSize, QFont::Weight weight, QWidget* parent)
    : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFont(Tokens::font(fontSize, weight));
}

void FiguresLabel::setColor(const QColor& color) {
    color_ = color;
    update();
}

void FiguresLabel::setText(const QString& text, const QString& name) {
    if (text == text_) return;
    text_ = text;
    setAccessibleName(name.isEmpty() ? text : name);
    update();
}

double FiguresLabel::measure(const QString& text, const QFont& font) {
    return walk(text, QFontMetricsF(font), [](const QString&, double) {});
}

void FiguresLabel::draw(QPainter& painter, const QRectF& box, const QString& text,
                        const QFont& font) {
    const QFontMetricsF metrics(font);
    // Centred by the height of figures and capitals.
    const double baseline = std::round(box.center().y() + metrics.capHeight() / 2);
    painter.setFont(font);
    walk(text, metrics, [&](const QString& piece, double x) {
        painter.drawText(QPointF(box.left() + x, baseline), piece);
    });
}

QSize FiguresLabel::sizeHint() const {
    return {static_cast<int>(std::ceil(measure(text_, font()))),
            static_cast<int>(std::ceil(QFontMetricsF(font()).height()))};
}

void FiguresLabel::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(color_);
    draw(painter, rect(), text_, font());
}

}  // namespace sonra
