#include "widgets/AgentChip.h"

#include <QFontMetricsF>
#include <QPainter>
#include <cmath>

namespace sonra {
namespace {

constexpr int chipHeight = 19;
constexpr int chipPadding = 7;
constexpr int sessionGap = 8;
constexpr int leastSession = 36;

QString fromUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace

AgentChip::AgentChip(QWidget* parent)
    : QWidget(parent),
      chipFont_(Tokens::font(11, QFont::Bold)),
      sessionFont_(Tokens::font(12, QFont::Medium)) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    chipFont_.setLetterSpacing(QFont::AbsoluteSpacing, 0.4);
}

void AgentChip::setLook(const Look& look, const Accent& accent) {
    tokens_ = Tokens::of(look);
    accent_ = accent;
    update();
}

void AgentChip::setAgent(const HarnessTheme& theme, const QString& session) {
    chip_ = fromUtf8(theme.chipLabel());
    session_ = session;
    const auto name = fromUtf8(theme.displayName());
    setAccessibleName(session.isEmpty() ? name : name + QStringLiteral(", ") + session);
    update();
}

int AgentChip::chipWidth() const {
    return static_cast<int>(std::ceil(QFontMetricsF(chipFont_).horizontalAdvance(chip_))) +
           2 * chipPadding;
}

QSize AgentChip::sizeHint() const {
    const double session = QFontMetricsF(sessionFont_).horizontalAdvance(session_);
    const int beside =
        session_.isEmpty() ? 0 : sessionGap + static_cast<int>(std::ceil(session)) + 1;
    return {chipWidth() + beside, chipHeight};
}

void AgentChip::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box(0, (height() - chipHeight) / 2.0, chipWidth(), chipHeight);
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent_.diagonal(box));
    painter.drawRoundedRect(box, Tokens::chipRadius, Tokens::chipRadius);

    const QFontMetricsF chipMetrics(chipFont_);
    const double middle = box.center().y();
    painter.setPen(accent_.ink);
    painter.setFont(chipFont_);
    painter.drawText(QPointF(chipPadding, middle + chipMetrics.capHeight() / 2), chip_);

    const QFontMetricsF metrics(sessionFont_);
    const double room = width() - chipWidth() - sessionGap;
    if (room < leastSession) return;
    painter.setPen(tokens_.soft);
    painter.setFont(sessionFont_);
    painter.drawText(QPointF(chipWidth() + sessionGap, middle + metrics.capHeight() / 2),
                     metrics.elidedText(session_, Qt::ElideMiddle, room));
}

}  // namespace sonra
