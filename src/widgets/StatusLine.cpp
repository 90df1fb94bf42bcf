#include "widgets/StatusLine.h"

#include <QConicalGradient>
#include <QFontMetricsF>
#include <QPainter>
#include <QTimerEvent>
#include <cmath>

namespace sonra {
namespace {

constexpr int turnTime = 1000;
constexpr int spinnerFrameTime = 33;

}  // namespace

StatusLine::StatusLine(double fontSize, QWidget* parent) : QWidget(parent), fontSize_(fontSize) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    setFont(Tokens::font(fontSize, QFont::Medium));
    since_.start();
    hide();
}

void StatusLine::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    turnOrRest();
    update();
}

void StatusLine::setStatus(const QString& text, bool spins) {
    if (text == text_ && spins == spins_) return;
    text_ = text;
    spins_ = spins;
    setAccessibleName(text);
    setVisible(!text.isEmpty());
    turnOrRest();
    update();
}

QSize StatusLine::sizeHint() const {
    const QFontMetricsF metrics(font());
    const double spinner = spins_ ? spinnerBox().right() + 1 + fontSize_ * 0.6 : 0;
    return {static_cast<int>(std::ceil(spinner + metrics.horizontalAdvance(text_))) + 1,
            static_cast<int>(std::ceil(fontSize_ * 1.5))};
}

QRect StatusLine::spinnerBox() const {
    const int side = static_cast<int>(std::round(fontSize_ * 1.05));
    return {0, (height() - side) / 2, side, side};
}

void StatusLine::turnOrRest() {
    if (spins_ && isVisible() && !look_.reducedMotion)
        turning_.start(spinnerFrameTime, this);
    else
        turning_.stop();
}

void StatusLine::showEvent(QShowEvent* /*event*/) {
    turnOrRest();
}

void StatusLine::hideEvent(QHideEvent* /*event*/) {
    turning_.stop();
}

void StatusLine::timerEvent(QTimerEvent* event) {
    if (event->timerId() == turning_.timerId()) update(spinnerBox());
}

void StatusLine::paintSpinner(QPainter& painter) const {
    const double width = std::max(1.5, fontSize_ * 0.13);
    const auto box = QRectF(spinnerBox()).adjusted(width, width, -width, -width);
    const double turn = look_.reducedMotion ? 0 : double(since_.elapsed() % turnTime) / turnTime;
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(tokens_.hover, width));
    painter.drawEllipse(box);
    // The tail is faint, the head in full colour.
    QConicalGradient tail(box.center(), -360 * turn);
    auto faint = accent_.start;
    faint.setAlphaF(0);
    tail.setColorAt(0, accent_.end);
    tail.setColorAt(0.75, faint);
    tail.setColorAt(1, faint);
    painter.setPen(QPen(QBrush(tail), width, Qt::SolidLine, Qt::RoundCap));
    painter.drawArc(box, static_cast<int>(-360 * 16 * turn) + 8 * 16, 264 * 16);
}

void StatusLine::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setPen(tokens_.soft);
    painter.setFont(font());
    const int indent = spins_ ? spinnerBox().right() + 1 + static_cast<int>(fontSize_ * 0.6) : 0;
    painter.drawText(rect().adjusted(indent, 0, 0, 0), Qt::AlignVCenter | Qt::TextSingleLine,
                     text_);
    if (spins_) paintSpinner(painter);
}

}  // namespace sonra
