#pragma once

#include <QFont>
#include <QGlyphRun>
#include <QRectF>
#include <QString>
#include <QTextLayout>
#include <memory>
#include <string>
#include <vector>

#include "captions/KaraokeMath.h"

namespace sonra {

/// A caption's text laid out in lines, and where each word's glyphs stand. Paragraph by paragraph
/// the whole text goes through the text engine, so that right-to-left scripts, Chinese line breaks
/// and words longer than a line come out as in any other text. Main thread only. Glyphs of a line
/// are looked up when they are first asked for.
class KaraokeText {
  public:
    /// What of one word stands in one line.
    struct Fragment {
        std::size_t word = 0;
        QList<QGlyphRun> glyphs;  ///< placed in the text's own coordinates
        QRectF box;               ///< as wide as the glyphs, as high as the line
        double baseline = 0;
    };

    /// What of a text is laid out: a layout holds the main thread, and nobody reads a book here.
    static constexpr std::size_t mostCharacters = 60'000;

    /// Takes UTF-8, of which it shows no more than `mostCharacters`; layOut must follow.
    void setText(const std::string& text);
    void layOut(const QFont& font, double width, double lineHeight);

    [[nodiscard]] const std::vector<KaraokeWord>& words() const { return words_; }
    [[nodiscard]] double contentHeight() const;
    [[nodiscard]] std::size_t lineCount() const { return lines_.size(); }
    [[nodiscard]] double lineTop(std::size_t line) const { return lines_[line].top; }
    [[nodiscard]] double lineHeight() const { return lineHeight_; }
    /// The line in which a word begins.
    [[nodiscard]] std::size_t lineOf(std::size_t word) const;
    /// Fragments of a line, in the order of the text.
    [[nodiscard]] const std::vector<Fragment>& fragments(std::size_t line) const;
    [[nodiscard]] std::vector<Fragment> fragmentsOf(std::size_t word) const;

  private:
    /// Positions in `text_`.
    struct Span {
        qsizetype begin = 0;
        qsizetype end = 0;
    };
    struct Paragraph {
        qsizetype start = 0;
        std::unique_ptr<QTextLayout> layout;
    };
    struct Line {
        std::size_t paragraph = 0;
        int index = 0;  ///< in its paragraph
        Span span;
        double top = 0;
        mutable std::vector<Fragment> fragments;
        mutable bool known = false;
    };

    void layOutParagraph(Paragraph& paragraph, const QFont& font, double width, double& top);
    [[nodiscard]] Fragment fragment(const Line& line, std::size_t word) const;
    [[nodiscard]] std::size_t firstWordIn(const Line& line) const;

    QString text_;
    std::vector<KaraokeWord> words_;
    std::vector<Span> spans_;  ///< of the words
    std::vector<Paragraph> paragraphs_;
    std::vector<Line> lines_;
    double lineHeight_ = 0;
};

}  // namespace sonra
