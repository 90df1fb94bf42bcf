#include "widgets/LivePill.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

#include "widgets/FiguresLabel.h"

namespace sonra {
namespace {

constexpr int pillHeight = 22;
constexpr int padding = 10;
constexpr int badgeHeight = 18;
constexpr int badgePadding = 7;
constexpr int badgeGap = 6;
constexpr double dot = 6;
constexpr double dotGap = 6;

QString fromUtf8(const std::optional<std::string>& text) {
    return text ? QString::fromStdString(*text) : QString();
}

}  // namespace

LivePill::LivePill(QWidget* parent)
    : QAbstractButton(parent),
      labelFont_(Tokens::font(11, QFont::DemiBold)),
      badgeFont_(Tokens::font(11, QFont::Bold)) {
    setFocusPolicy(Qt::NoFocus);
    labelFont_.setLetterSpacing(QFont::AbsoluteSpacing, 0.3);
    setEnabled(false);
    hide();
}

void LivePill::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    update();
}

void LivePill::setIndicator(const LiveIndicator& indicator, int newMessages) {
    history_ = std::holds_alternative<LiveIndicator::History>(indicator.value);
    label_ = fromUtf8(LiveIndicatorFormat::pillLabel(indicator));
    badge_ = history_ ? fromUtf8(LiveIndicatorFormat::newBadgeLabel(newMessages)) : QString();
    describe();
    updateGeometry();
    update();
}

void LivePill::describe() {
    const QString back = QStringLiteral("Jump back to live");
    setEnabled(history_);
    setVisible(!label_.isEmpty());
    setToolTip(history_ ? back : QString());
    setCursor(history_ ? Qt::PointingHandCursor : Qt::ArrowCursor);
    setAccessibleName(history_ ? back : label_);
    setAccessibleDescription(history_ ? QStringList{label_, badge_}.join(u' ').trimmed()
                                      : QString());
}

double LivePill::pillWidth() const {
    return std::ceil(FiguresLabel::measure(label_, labelFont_)) + 2 * padding +
           (history_ ? 0 : dot + dotGap);
}

double LivePill::badgeWidth() const {
    return badge_.isEmpty()
               ? 0
               : std::ceil(FiguresLabel::measure(badge_, badgeFont_)) + 2 * badgePadding;
}

QSize LivePill::sizeHint() const {
    const double badge = badge_.isEmpty() ? 0 : badgeGap + badgeWidth();
    return {static_cast<int>(pillWidth() + badge), pillHeight + 2};
}

void LivePill::enterEvent(QEnterEvent* /*event*/) {
    hovered_ = true;
    update();
}

void LivePill::leaveEvent(QEvent* /*event*/) {
    hovered_ = false;
    update();
}

void LivePill::paintPill(QPainter& painter) const {
    const QRectF box(0, (height() - pillHeight) / 2.0, pillWidth(), pillHeight);
    const bool warm = history_ && (hovered_ || isDown());
    painter.setPen(look_.highContrast ? QPen(tokens_.hairline, 1) : QPen(Qt::NoPen));
    painter.setBrush(warm ? tokens_.hover : tokens_.fill);
    painter.drawRoundedRect(box.adjusted(.5, .5, -.5, -.5), pillHeight / 2.0, pillHeight / 2.0);
    double left = padding;
    if (!history_) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(tokens_.live);
        painter.drawEllipse(QRectF(left, box.center().y() - dot / 2, dot, dot));
        left += dot + dotGap;
    }
    painter.setPen(tokens_.text);
    FiguresLabel::draw(painter, box.adjusted(left, 0, 0, 0), label_, labelFont_);
}

void LivePill::paintBadge(QPainter& painter) const {
    const QRectF box(pillWidth() + badgeGap, (height() - badgeHeight) / 2.0, badgeWidth(),
                     badgeHeight);
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent_.diagonal(box));
    painter.drawRoundedRect(box, badgeHeight / 2.0, badgeHeight / 2.0);
    painter.setPen(accent_.ink);
    FiguresLabel::draw(painter, box.adjusted(badgePadding, 0, 0, 0), badge_, badgeFont_);
}

void LivePill::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    paintPill(painter);
    if (!badge_.isEmpty()) paintBadge(painter);
}

}  // namespace sonra
