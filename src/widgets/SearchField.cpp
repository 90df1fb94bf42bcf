#include "widgets/SearchField.h"

#include <QApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QProxyStyle>
#include <algorithm>
#include <optional>

namespace sonra {
namespace {

constexpr double fieldFontSize = 18;
constexpr int caretWidth = 2;

/// Leaves the caret to the field: Qt draws it in the text's colour.
class CaretlessStyle : public QProxyStyle {
  public:
    int pixelMetric(PixelMetric metric, const QStyleOption* option,
                    const QWidget* widget) const override {
        if (metric == PM_TextCursorWidth) return 0;
        return QProxyStyle::pixelMetric(metric, option, widget);
    }
};

std::optional<SearchPanel::Command> commandOf(const QKeyEvent& event) {
    using Command = SearchPanel::Command;
    if (event.matches(QKeySequence::Copy)) return Command::copy;
    if ((event.modifiers() & ~Qt::KeypadModifier) != Qt::NoModifier) return std::nullopt;
    switch (event.key()) {
        case Qt::Key_Up:
            return Command::moveUp;
        case Qt::Key_Down:
            return Command::moveDown;
        case Qt::Key_Escape:
            return Command::cancel;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            return Command::activate;
        default:
            return std::nullopt;
    }
}

}  // namespace

SearchField::SearchField(QWidget* parent) : QLineEdit(parent) {
    auto* style = new CaretlessStyle;
    style->setParent(this);
    setStyle(style);
    setFrame(false);
    setContextMenuPolicy(Qt::NoContextMenu);
    setDragEnabled(false);
    setFont(Tokens::font(fieldFontSize, QFont::Medium));
    setPlaceholderText(QStringLiteral("Search projects, sessions, messages…"));
    setAccessibleName(QStringLiteral("Search"));
    QInputMethodEvent nothing;
    SearchField::inputMethodEvent(&nothing);
    connect(this, &QLineEdit::cursorPositionChanged, this, [this] { restartCaret(); });
    connect(this, &QLineEdit::textChanged, this, [this] { restartCaret(); });
}

void SearchField::setLook(const Look& look, const Accent& accent) {
    const auto tokens = Tokens::of(look);
    auto colors = palette();
    auto chosen = accent.start;
    chosen.setAlphaF(0.35F);
    colors.setColor(QPalette::Base, Qt::transparent);
    colors.setColor(QPalette::Text, tokens.text);
    colors.setColor(QPalette::PlaceholderText, look.highContrast ? tokens.soft : tokens.dim);
    colors.setColor(QPalette::Highlight, chosen);
    colors.setColor(QPalette::HighlightedText, tokens.text);
    setPalette(colors);
    caretColor_ = look.highContrast ? tokens.text : accent.textStart;
    isStill_ = look.reducedMotion;
    restartCaret();
    update();
}

void SearchField::keyPressEvent(QKeyEvent* event) {
    if (removesText(*event)) return event->accept();
    const auto command = commandOf(*event);
    if (!command) return QLineEdit::keyPressEvent(event);
    event->accept();
    if (onCommand) onCommand(*command);
}

/// Does what these keys do, but for the copy that they leave on the clipboard.
bool SearchField::removesText(const QKeyEvent& event) {
    if (event.matches(QKeySequence::DeleteEndOfLine))
        setSelection(cursorPosition(), static_cast<int>(text().size()) - cursorPosition());
    else if (event.matches(QKeySequence::DeleteCompleteLine))
        selectAll();
    else if (!event.matches(QKeySequence::Cut))
        return false;
    if (hasSelectedText()) del();
    return true;
}

void SearchField::inputMethodEvent(QInputMethodEvent* event) {
    auto attributes = event->attributes();
    const auto isCaret = [](const auto& attribute) {
        return attribute.type == QInputMethodEvent::Cursor;
    };
    if (std::ranges::none_of(attributes, isCaret))
        attributes.append({QInputMethodEvent::Cursor,
                           static_cast<int>(event->preeditString().size()), 0, QVariant()});
    // A caret of no length is not drawn, nor the sign of its direction.
    for (auto& attribute : attributes)
        if (isCaret(attribute)) attribute.length = 0;
    QInputMethodEvent caretless(event->preeditString(), attributes);
    caretless.setCommitString(event->commitString(), event->replacementStart(),
                              event->replacementLength());
    QLineEdit::inputMethodEvent(&caretless);
    event->setAccepted(caretless.isAccepted());
}

void SearchField::focusInEvent(QFocusEvent* event) {
    QLineEdit::focusInEvent(event);
    restartCaret();
}

void SearchField::focusOutEvent(QFocusEvent* event) {
    QLineEdit::focusOutEvent(event);
    restartCaret();
}

bool SearchField::focusNextPrevChild(bool /*next*/) {
    return true;
}

void SearchField::restartCaret() {
    isCaretOn_ = hasFocus();
    const int turn = QApplication::cursorFlashTime() / 2;
    if (isCaretOn_ && !isStill_ && turn > 0)
        blinking_.start(turn, this);
    else
        blinking_.stop();
    update(caret());
}

void SearchField::timerEvent(QTimerEvent* event) {
    if (event->timerId() != blinking_.timerId()) return QLineEdit::timerEvent(event);
    isCaretOn_ = !isCaretOn_;
    update(caret());
}

QRect SearchField::caret() const {
    const auto box = cursorRect();
    // Beside the letter, not upon it.
    const bool isRightOfIt = cursorPosition() > 0 && !text().isRightToLeft();
    const int left = box.center().x() + (isRightOfIt ? 1 : -caretWidth);
    return {std::clamp(left, 0, width() - caretWidth), box.top(), caretWidth, box.height()};
}

void SearchField::paintEvent(QPaintEvent* event) {
    QLineEdit::paintEvent(event);
    if (isCaretOn_) QPainter(this).fillRect(caret(), caretColor_);
}

}  // namespace sonra
