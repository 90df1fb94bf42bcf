#include "widgets/KaraokeFlow.h"

#include <QPaintEvent>
#include <algorithm>
#include <cmath>

namespace sonra {
namespace {

/// Where in the visible height the active line rests.
constexpr double restingPlace = 0.45;
constexpr double upperFade = 24;
constexpr double lowerFade = 16;

}  // namespace

KaraokeFlow::KaraokeFlow(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_TransparentForMouseEvents);
    fade_.setDuration(Tokens::wordFade);
    fade_.setStartValue(0.0);
    fade_.setEndValue(1.0);
    connect(&fade_, &QVariantAnimation::valueChanged, this, [this](const QVariant& value) {
        strength_ = value.toDouble();
        damage(arriving_.bounds());
        damage(leaving_.bounds());
    });
    connect(&fade_, &QVariantAnimation::finished, this, [this] { leaving_ = {}; });
    scrolling_.setDuration(Tokens::scrollTime);
    scrolling_.setEasingCurve(QEasingCurve::OutCubic);
    connect(&scrolling_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { scrollTo(value.toDouble()); });
}

void KaraokeFlow::setLook(const Look& look, const Accent& accent) {
    look_ = look;
    tokens_ = Tokens::of(look);
    accent_ = accent;
    invalidateLayout();
}

void KaraokeFlow::setFontSize(double pixels) {
    fontSize_ = pixels;
    invalidateLayout();
}

void KaraokeFlow::setText(const std::string& text) {
    text_.setText(text);
    setAccessibleName(QString::fromStdString(text));
    active_.reset();
    pastEnd_.reset();
    invalidateLayout();
}

void KaraokeFlow::setPosition(const std::optional<TextRange>& active,
                              std::optional<std::size_t> pastEnd) {
    active_ = active;
    pastEnd_ = pastEnd;
    if (laidOut_) applyRoles(isVisible() && !look_.reducedMotion);
}

const KaraokeText& KaraokeFlow::text() {
    ensureLayout();
    return text_;
}

QRectF KaraokeFlow::viewport() const {
    return QRectF(rect()).adjusted(sidePadding, endPadding, -sidePadding, -endPadding);
}

void KaraokeFlow::resizeEvent(QResizeEvent* /*event*/) {
    invalidateLayout();
}

void KaraokeFlow::invalidateLayout() {
    laidOut_ = false;
    fade_.stop();
    scrolling_.stop();
    arriving_ = {};
    leaving_ = {};
    emphasised_.clear();
    strength_ = 1;
    damageAll();
}

void KaraokeFlow::ensureLayout() {
    if (laidOut_) return;
    laidOut_ = true;
    const auto font = Tokens::font(fontSize_, QFont::Medium);
    text_.layOut(font, std::max(1.0, viewport().width()),
                 std::round(fontSize_ * Tokens::captionLeading));
    roles_.assign(text_.words().size(), KaraokeMath::WordRole::future);
    applyRoles(false);
}

KaraokeFlow::Roles KaraokeFlow::rolesNow() const {
    Roles roles;
    roles.reserve(text_.words().size());
    for (const auto& word : text_.words())
        roles.push_back(KaraokeMath::role(word, active_, pastEnd_));
    return roles;
}

void KaraokeFlow::applyRoles(bool animated) {
    auto roles = rolesNow();
    std::vector<std::size_t> active;
    for (std::size_t word = 0; word < roles.size(); ++word) {
        if (roles[word] != roles_[word]) damageWord(word);
        if (roles[word] == KaraokeMath::WordRole::active) active.push_back(word);
    }
    roles_ = std::move(roles);
    if (active != emphasised_) emphasise(std::move(active), animated);
    scrollToActive(animated);
}

void KaraokeFlow::emphasise(std::vector<std::size_t> words, bool animated) {
    std::vector<KaraokeText::Fragment> fragments;
    for (const auto word : words)
        for (auto& fragment : text_.fragmentsOf(word)) fragments.push_back(std::move(fragment));
    emphasised_ = std::move(words);
    damage(arriving_.bounds());
    damage(leaving_.bounds());
    fade_.stop();
    leavingStrength_ = strength_;
    leaving_ = animated ? std::exchange(arriving_, {}) : WordEmphasis();
    arriving_ = WordEmphasis(std::move(fragments), accent_, tokens_, devicePixelRatioF());
    damage(arriving_.bounds());
    strength_ = 1;
    if (animated && !(arriving_.isEmpty() && leaving_.isEmpty())) {
        strength_ = 0;
        fade_.start();
    }
}

double KaraokeFlow::maximumScroll() const {
    return std::max(0.0, text_.contentHeight() - viewport().height());
}

void KaraokeFlow::scrollToActive(bool animated) {
    const auto active =
        std::find(roles_.begin(), roles_.end(), KaraokeMath::WordRole::active) - roles_.begin();
    double top = 0;
    if (active < std::ssize(roles_)) {
        top = text_.lineTop(text_.lineOf(static_cast<std::size_t>(active)));
    } else if (scroll_ > 0 && pastEnd_.value_or(0) > 0) {
        return;  // between words, the text stays where it is
    }
    const double goal = std::round(
        KaraokeMath::scrollOffset(top, viewport().height(), text_.contentHeight(), restingPlace));
    if (goal == scrollGoal_ && (animated || goal == scroll_)) return;
    scrollGoal_ = goal;
    scrolling_.stop();
    if (!animated) return scrollTo(goal);
    scrolling_.setStartValue(scroll_);
    scrolling_.setEndValue(goal);
    scrolling_.start();
}

void KaraokeFlow::scrollTo(double offset) {
    if (offset == scroll_) return;
    scroll_ = offset;
    damageAll();
}

void KaraokeFlow::damage(const QRectF& inText) {
    if (inText.isEmpty()) return;
    const auto place = viewport();
    const auto changed =
        inText.translated(place.left(), place.top() - scroll_).toAlignedRect() & rect();
    damage_ += changed;
    update(changed);
}

void KaraokeFlow::damageWord(std::size_t word) {
    for (const auto& fragment : text_.fragmentsOf(word)) damage(fragment.box.adjusted(-4, 0, 4, 0));
}

void KaraokeFlow::damageAll() {
    damage_ = rect();
    update();
}

void KaraokeFlow::paintEvent(QPaintEvent* event) {
    ensureLayout();
    if (!hasWords()) return;
    repaintLayer();
    QPainter painter(this);
    const double scale = layer_.devicePixelRatio();
    for (const auto& part : event->region())
        painter.drawPixmap(QRectF(part), layer_,
                           QRectF(QPointF(part.topLeft()) * scale, QSizeF(part.size()) * scale));
}

void KaraokeFlow::repaintLayer() {
    const double scale = devicePixelRatioF();
    const QSize pixels(static_cast<int>(std::ceil(width() * scale)),
                       static_cast<int>(std::ceil(height() * scale)));
    if (layer_.size() != pixels || layer_.devicePixelRatio() != scale) {
        layer_ = QPixmap(pixels);
        layer_.setDevicePixelRatio(scale);
        layer_.fill(Qt::transparent);
        damage_ = rect();
    }
    if (damage_.isEmpty()) return;
    QPainter painter(&layer_);
    painter.setClipRegion(damage_);
    painter.setCompositionMode(QPainter::CompositionMode_Clear);
    painter.fillRect(rect(), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const auto place = viewport();
    const QPointF origin(place.left(), place.top() - scroll_);
    painter.translate(origin);
    paintText(painter, QRectF(damage_.boundingRect()).translated(-origin));
    painter.translate(-origin);
    fadeEnds(painter);
    damage_ = {};
}

void KaraokeFlow::paintText(QPainter& painter, const QRectF& dirty) {
    const double leavingNow = leavingStrength_ * (1 - strength_);
    leaving_.paintGlow(painter, leavingNow);
    arriving_.paintGlow(painter, strength_);
    paintWords(painter, dirty);
    if (!leaving_.isEmpty()) leaving_.paint(painter, leavingNow, restColor(leaving_));
    if (!arriving_.isEmpty()) arriving_.paint(painter, strength_, tokens_.text);
}

void KaraokeFlow::paintWords(QPainter& painter, const QRectF& dirty) {
    painter.setPen(tokens_.text);
    for (std::size_t line = 0; line < text_.lineCount(); ++line) {
        // Tall scripts reach beyond their line.
        const double reach = text_.lineHeight() / 2;
        if (text_.lineTop(line) - reach > dirty.bottom()) break;
        if (text_.lineTop(line) + text_.lineHeight() + reach < dirty.top()) continue;
        for (const auto& fragment : text_.fragments(line)) {
            if (arriving_.covers(fragment.word) || leaving_.covers(fragment.word)) continue;
            const bool past = roles_[fragment.word] == KaraokeMath::WordRole::past;
            painter.setOpacity(past ? tokens_.dim.alphaF() : 1);
            for (const auto& run : fragment.glyphs) painter.drawGlyphRun({}, run);
        }
    }
    painter.setOpacity(1);
}

QColor KaraokeFlow::restColor(const WordEmphasis& word) const {
    for (std::size_t index = 0; index < roles_.size(); ++index)
        if (word.covers(index))
            return roles_[index] == KaraokeMath::WordRole::past ? tokens_.dim : tokens_.text;
    return tokens_.text;
}

void KaraokeFlow::fadeEnds(QPainter& painter) const {
    painter.setCompositionMode(QPainter::CompositionMode_DestinationIn);
    const auto fade = [&](double clear, double full) {
        const QRectF strip(0, std::min(clear, full), width(), std::abs(full - clear));
        QLinearGradient ramp(0, clear, 0, full);
        ramp.setColorAt(0, Qt::transparent);
        ramp.setColorAt(1, Qt::black);
        painter.fillRect(strip, ramp);
    };
    if (scroll_ > 0) fade(0, upperFade);
    if (scroll_ < maximumScroll()) fade(height(), height() - lowerFade);
}

}  // namespace sonra
