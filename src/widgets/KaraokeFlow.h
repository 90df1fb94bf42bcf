#pragma once

#include <QPixmap>
#include <QVariantAnimation>
#include <QWidget>
#include <optional>
#include <string>
#include <vector>

#include "widgets/KaraokeText.h"
#include "widgets/WordEmphasis.h"

namespace sonra {

/// The text that is being spoken: words behind the voice are dim, the active one glows, the active
/// line rests a little above the middle. Main thread only. The painted text is kept as a picture;
/// a word that changes repaints no more than itself, and what moves behind the text costs a copy.
class KaraokeFlow : public QWidget {
  public:
    explicit KaraokeFlow(QWidget* parent);

    void setLook(const Look& look, const Accent& accent);
    void setFontSize(double pixels);
    void setText(const std::string& text);
    void setPosition(const std::optional<TextRange>& active, std::optional<std::size_t> pastEnd);

    [[nodiscard]] bool hasWords() const { return !text_.words().empty(); }
    /// The text as laid out for the present size.
    const KaraokeText& text();
    [[nodiscard]] double scroll() const { return scroll_; }

    static constexpr int sidePadding = 32;
    /// Lines that scroll away fade out over it.
    static constexpr int endPadding = 8;

  private:
    using Roles = std::vector<KaraokeMath::WordRole>;

    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    [[nodiscard]] QRectF viewport() const;
    void invalidateLayout();
    void ensureLayout();
    [[nodiscard]] Roles rolesNow() const;
    void applyRoles(bool animated);
    void emphasise(std::vector<std::size_t> words, bool animated);
    void scrollToActive(bool animated);
    void scrollTo(double offset);
    [[nodiscard]] double maximumScroll() const;

    void damage(const QRectF& inText);
    void damageWord(std::size_t word);
    void damageAll();
    void repaintLayer();
    void paintText(QPainter& painter, const QRectF& dirty);
    void paintWords(QPainter& painter, const QRectF& dirty);
    void fadeEnds(QPainter& painter) const;
    [[nodiscard]] QColor restColor(const WordEmphasis& word) const;

    KaraokeText text_;
    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
    Accent accent_ = Accent::of(HarnessTheme::current(""), tokens_);
    double fontSize_ = 22;
    bool laidOut_ = false;

    std::optional<TextRange> active_;
    std::optional<std::size_t> pastEnd_;
    Roles roles_;
    std::vector<std::size_t> emphasised_;
    WordEmphasis arriving_;
    WordEmphasis leaving_;
    double strength_ = 1;         ///< of the arriving word
    double leavingStrength_ = 0;  ///< where the leaving word started from
    QVariantAnimation fade_{this};

    double scroll_ = 0;
    double scrollGoal_ = 0;
    QVariantAnimation scrolling_{this};

    QPixmap layer_;   ///< the text as painted last
    QRegion damage_;  ///< where it is out of date
};

}  // namespace sonra
