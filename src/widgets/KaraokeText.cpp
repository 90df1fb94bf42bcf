#include "widgets/KaraokeText.h"

#include <QFontMetricsF>
#include <QTextOption>
#include <algorithm>
#include <limits>

#include "frame/Text.h"

namespace sonra {

void KaraokeText::setText(const std::string& whole) {
    const auto text = std::string(text::prefix(whole, mostCharacters));
    words_ = KaraokeMath::tokenize(text);
    text_.clear();
    spans_.clear();
    spans_.reserve(words_.size());
    paragraphs_.clear();
    lines_.clear();
    const auto append = [&](std::size_t begin, std::size_t end) {
        text_ += QString::fromUtf8(text.data() + begin, static_cast<qsizetype>(end - begin));
    };
    // Piece by piece, so that a word's place is right even where bytes are not valid UTF-8.
    std::size_t done = 0;
    for (const auto& word : words_) {
        append(done, word.range.begin);
        const auto begin = text_.size();
        append(word.range.begin, word.range.end);
        spans_.push_back({begin, text_.size()});
        done = word.range.end;
    }
}

void KaraokeText::layOut(const QFont& font, double width, double lineHeight) {
    lineHeight_ = lineHeight;
    paragraphs_.clear();
    lines_.clear();
    double top = 0;
    qsizetype start = 0;
    while (start < text_.size()) {
        auto end = text_.indexOf(u'\n', start);
        if (end < 0) end = text_.size();
        Paragraph paragraph;
        paragraph.start = start;
        paragraph.layout = std::make_unique<QTextLayout>(
            text_.mid(start, end - start).trimmed().isEmpty() ? QString()
                                                              : text_.mid(start, end - start),
            font);
        paragraphs_.push_back(std::move(paragraph));
        if (!paragraphs_.back().layout->text().isEmpty())
            layOutParagraph(paragraphs_.back(), font, width, top);
        start = end + 1;
    }
}

void KaraokeText::layOutParagraph(Paragraph& paragraph, const QFont& font, double width,
                                  double& top) {
    auto& layout = *paragraph.layout;
    QTextOption option;
    option.setWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    const bool toLeft = layout.text().isRightToLeft();
    option.setTextDirection(toLeft ? Qt::RightToLeft : Qt::LeftToRight);
    option.setAlignment(toLeft ? Qt::AlignRight : Qt::AlignLeft);
    layout.setTextOption(option);
    layout.setCacheEnabled(true);
    // A fallback font's height must not move the lines: baselines stand at even distances.
    const QFontMetricsF metrics(font);
    const double baseline = (lineHeight_ + metrics.ascent() - metrics.descent()) / 2;
    layout.beginLayout();
    for (auto line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        line.setPosition({0, top + baseline - line.ascent()});
        Line entry;
        entry.paragraph = paragraphs_.size() - 1;
        entry.index = line.lineNumber();
        entry.span.begin = paragraph.start + line.textStart();
        entry.span.end = entry.span.begin + line.textLength();
        entry.top = top;
        lines_.push_back(std::move(entry));
        top += lineHeight_;
    }
    layout.endLayout();
}

double KaraokeText::contentHeight() const {
    return static_cast<double>(lines_.size()) * lineHeight_;
}

std::size_t KaraokeText::lineOf(std::size_t word) const {
    const auto begin = spans_[word].begin;
    const auto after =
        std::upper_bound(lines_.begin(), lines_.end(), begin,
                         [](qsizetype at, const Line& line) { return at < line.span.begin; });
    return after == lines_.begin() ? 0 : static_cast<std::size_t>(after - lines_.begin()) - 1;
}

std::size_t KaraokeText::firstWordIn(const Line& line) const {
    const auto first =
        std::upper_bound(spans_.begin(), spans_.end(), line.span.begin,
                         [](qsizetype at, const Span& span) { return at < span.end; });
    return static_cast<std::size_t>(first - spans_.begin());
}

const std::vector<KaraokeText::Fragment>& KaraokeText::fragments(std::size_t index) const {
    const auto& line = lines_[index];
    if (line.known) return line.fragments;
    for (auto word = firstWordIn(line); word < spans_.size() && spans_[word].begin < line.span.end;
         ++word)
        line.fragments.push_back(fragment(line, word));
    line.known = true;
    return line.fragments;
}

KaraokeText::Fragment KaraokeText::fragment(const Line& line, std::size_t word) const {
    const auto& paragraph = paragraphs_[line.paragraph];
    const auto textLine = paragraph.layout->lineAt(line.index);
    const auto begin = std::max(spans_[word].begin, line.span.begin);
    const auto end = std::min(spans_[word].end, line.span.end);
    Fragment result;
    result.word = word;
    result.glyphs = textLine.glyphRuns(static_cast<int>(begin - paragraph.start),
                                       static_cast<int>(end - begin));
    result.baseline = textLine.y() + textLine.ascent();
    double left = std::numeric_limits<double>::max();
    double right = std::numeric_limits<double>::lowest();
    for (const auto& run : result.glyphs) {
        const auto positions = run.positions();
        const auto advances = run.rawFont().advancesForGlyphIndexes(run.glyphIndexes());
        for (qsizetype i = 0; i < positions.size(); ++i) {
            left = std::min(left, positions[i].x());
            right = std::max(right, positions[i].x() + advances.value(i).x());
        }
    }
    if (left <= right) result.box = QRectF(left, line.top, right - left, lineHeight_);
    return result;
}

std::vector<KaraokeText::Fragment> KaraokeText::fragmentsOf(std::size_t word) const {
    std::vector<Fragment> result;
    for (auto line = lineOf(word);
         line < lines_.size() && lines_[line].span.begin < spans_[word].end; ++line) {
        for (const auto& fragment : fragments(line))
            if (fragment.word == word) result.push_back(fragment);
    }
    return result;
}

}  // namespace sonra
