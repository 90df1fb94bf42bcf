#include "widgets/PieceLayout.h"

#include <QPainter>
#include <QTextBoundaryFinder>
#include <QTextLayout>
#include <QTextOption>
#include <algorithm>

namespace sonra {
namespace {

/// Wider than any text of a row.
constexpr double endless = 1 << 20;

QString oneLine(QString text) {
    for (auto& character : text)
        if (character.category() == QChar::Other_Control ||
            character.category() == QChar::Separator_Line ||
            character.category() == QChar::Separator_Paragraph)
            character = u' ';
    return text;
}

/// Where each user-perceived character begins, and the text's end.
std::vector<int> characterBounds(const QString& text) {
    std::vector<int> bounds{0};
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    while (finder.toNextBoundary() >= 0) bounds.push_back(static_cast<int>(finder.position()));
    return bounds;
}

QTextCharFormat emphasisOf(const PieceLayout::Style& style) {
    QTextCharFormat format;
    auto font = style.font;
    font.setWeight(QFont::Bold);
    format.setFont(font);
    format.setForeground(style.emphasis);
    format.setFontUnderline(style.underlinesEmphasis);
    return format;
}

/// One range for each run of characters that are emphasised, so that words keep their shapes.
QList<QTextLayout::FormatRange> rangesOf(const std::vector<int>& bounds,
                                         const std::vector<int>& emphasised,
                                         const PieceLayout::Style& style) {
    QList<QTextLayout::FormatRange> ranges;
    for (std::size_t i = 0; i + 1 < bounds.size(); ++i) {
        const auto hit = std::ranges::lower_bound(emphasised, bounds[i]);
        if (hit == emphasised.end() || *hit >= bounds[i + 1]) continue;
        const int length = bounds[i + 1] - bounds[i];
        if (!ranges.empty() && ranges.back().start + ranges.back().length == bounds[i])
            ranges.back().length += length;
        else
            ranges.push_back({bounds[i], length, emphasisOf(style)});
    }
    return ranges;
}

std::unique_ptr<QTextLayout> laidOut(const QString& text, const PieceLayout::Style& style,
                                     const QList<QTextLayout::FormatRange>& ranges) {
    auto layout = std::make_unique<QTextLayout>(text, style.font);
    QTextOption option;
    option.setWrapMode(QTextOption::NoWrap);
    option.setTextDirection(text.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
    layout->setTextOption(option);
    layout->setFormats(ranges);
    layout->setCacheEnabled(true);
    layout->beginLayout();
    auto line = layout->createLine();
    if (line.isValid()) {
        line.setLineWidth(endless);
        line.setLineWidth(line.naturalTextWidth());
        line.setPosition({0, -line.ascent()});
    }
    layout->endLayout();
    return layout;
}

double widthOf(const QTextLayout& layout) {
    return layout.lineCount() > 0 ? layout.lineAt(0).naturalTextWidth() : 0;
}

}  // namespace

PieceLayout::PieceLayout(const QString& text, const std::vector<int>& emphasised,
                         const Style& style, double room)
    : color_(style.color) {
    const auto line = oneLine(text);
    const auto bounds = characterBounds(line);
    const auto ranges = rangesOf(bounds, emphasised, style);
    layout_ = laidOut(line, style, ranges);
    isCut_ = widthOf(*layout_) > room;
    // Of the beginnings with "…", the longest that has room; at worst the "…" alone.
    std::size_t fits = 0;
    for (std::size_t tooLong = bounds.size(); isCut_ && tooLong - fits > 1;) {
        const auto middle = (fits + tooLong) / 2;
        const bool hasRoom =
            widthOf(*laidOut(line.left(bounds[middle]) + u'…', style, ranges)) <= room;
        (hasRoom ? fits : tooLong) = middle;
    }
    if (isCut_) {
        const std::vector kept(bounds.begin(),
                               bounds.begin() + static_cast<std::ptrdiff_t>(fits) + 1);
        layout_ = laidOut(line.left(kept.back()) + u'…', style, rangesOf(kept, emphasised, style));
    }
    width_ = widthOf(*layout_);
}

PieceLayout::~PieceLayout() = default;
PieceLayout::PieceLayout(PieceLayout&& other) noexcept = default;
PieceLayout& PieceLayout::operator=(PieceLayout&& other) noexcept = default;

QString PieceLayout::text() const {
    return layout_->text();
}

void PieceLayout::draw(QPainter& painter, const QPointF& baseline) const {
    painter.setPen(color_);
    layout_->draw(&painter, baseline);
}

}  // namespace sonra
