#include "widgets/SearchPanelWindow.h"

#include <QClipboard>
#include <QCloseEvent>
#include <QGuiApplication>
#include <QLabel>
#include <QPaintEvent>
#include <QPainter>

#include "widgets/FollowedLook.h"
#include "widgets/Icons.h"
#include "widgets/PanelWindowHints.h"
#include "widgets/SearchEmptyState.h"
#include "widgets/SearchField.h"
#include "widgets/SearchRowList.h"
#include "widgets/WindowActivation.h"
#include "widgets/XcbConnection.h"

namespace sonra {
namespace {

constexpr int headHeight = 60;
constexpr int footHeight = 34;
constexpr int fieldSide = 48;
constexpr int fieldEnd = 20;
constexpr int fieldHeight = 32;
constexpr int glassSize = 18;
constexpr int glassSide = 20;
constexpr int rowsGap = 8;  ///< above and below the rows
constexpr int footSide = 20;
constexpr double hintSize = 12;

QString asShown(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

SearchPanelWindow::SearchPanelWindow() : SearchPanelWindow(std::make_unique<FollowedLook>()) {}

SearchPanelWindow::SearchPanelWindow(std::unique_ptr<DesktopLook> own) : SearchPanelWindow(*own) {
    ownLook_ = std::move(own);
}

SearchPanelWindow::SearchPanelWindow(DesktopLook& look)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint),
      look_(look),
      field_(new SearchField(this)),
      rows_(new SearchRowList(this)),
      empty_(new SearchEmptyState(this)),
      footer_(new QLabel(this)),
      strip_(new QLabel(this)) {
    prepareWindow();
    connectParts();
    applyLook();
}

SearchPanelWindow::~SearchPanelWindow() = default;

void SearchPanelWindow::prepareWindow() {
    setWindowTitle(QStringLiteral("Sonra search"));
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_QuitOnClose, false);
    setFocusProxy(field_);
    for (auto* hint : {footer_, strip_}) {
        hint->setFont(Tokens::font(hintSize));
        hint->setTextFormat(Qt::PlainText);
    }
    strip_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    strip_->hide();
    fading_.setDuration(Tokens::fadeIn);
    fading_.setStartValue(0.0);
    fading_.setEndValue(1.0);
}

void SearchPanelWindow::connectParts() {
    connect(field_, &QLineEdit::textEdited, this, [this] {
        if (onQueryChanged) onQueryChanged();
    });
    field_->onCommand = [this](Command command) { order(command); };
    rows_->onSelect = [this](std::size_t row) {
        if (onSelect) onSelect(row);
    };
    rows_->onActivate = [this] { order(Command::activate); };
    connect(&look_, &DesktopLook::changed, this, [this] { applyLook(); });
    connect(&fading_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { setWindowOpacity(value.toDouble()); });
}

void SearchPanelWindow::order(Command command) {
    if (onCommand) onCommand(command);
}

void SearchPanelWindow::applyLook() {
    const auto& look = look_.look();
    const auto tokens = Tokens::of(look);
    const auto accent = Accent::of(HarnessTheme::current(""), tokens);
    chrome_.setLook(look);
    field_->setLook(look, accent);
    rows_->setLook(look);
    empty_->setColor(tokens.soft);
    for (auto* hint : {footer_, strip_}) {
        auto colors = hint->palette();
        colors.setColor(QPalette::WindowText, tokens.soft);
        hint->setPalette(colors);
    }
    glass_ = {};
    setGeometry(panel_.marginsAdded(chrome_.margins()));
    applyShape();
    arrange();
    update();
}

void SearchPanelWindow::applyShape() {
    if (look_.look().composited)
        clearMask();
    else
        setMask(chrome_.mask(size()));
    PanelWindowHints::setReach(*this, panelRect(), chrome_.margins());
}

void SearchPanelWindow::arrange() {
    const auto panel = panelRect();
    field_->setGeometry(panel.left() + fieldSide, panel.top() + (headHeight - fieldHeight) / 2,
                        panel.width() - fieldSide - fieldEnd, fieldHeight);
    const QRect body(panel.left(), panel.top() + headHeight, panel.width(),
                     panel.height() - headHeight - footHeight);
    rows_->setGeometry(body.adjusted(0, rowsGap, 0, -rowsGap));
    empty_->setGeometry(body);
    const QRect foot(panel.left() + footSide, body.bottom() + 1, panel.width() - 2 * footSide,
                     footHeight);
    footer_->setGeometry(foot);
    strip_->setGeometry(foot);
}

QRect SearchPanelWindow::panelRect() const {
    return rect().marginsRemoved(chrome_.margins());
}

void SearchPanelWindow::setFrame(const Rect& frame) {
    panel_ = QRectF(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height).toRect();
    setGeometry(panel_.marginsAdded(chrome_.margins()));
}

void SearchPanelWindow::activate() {
    if (!shown_) present();
    if (XcbConnection::get()) raise();
    activateWindow();
    WindowActivation::claim(*this);
    field_->setFocus(Qt::OtherFocusReason);
    field_->selectAll();
}

void SearchPanelWindow::present() {
    shown_ = true;
    winId();
    PanelWindowHints::prepareToShow(*this);
    fadeIn();
    QWidget::show();
    // Qt may take the window to be at the origin after it is shown for the first time.
    move(panel_.marginsAdded(chrome_.margins()).topLeft());
    applyShape();
    PanelWindowHints::claimAllDesktops(*this);
}

void SearchPanelWindow::fadeIn() {
    // Qt's other platforms complain that they can't.
    if (!XcbConnection::get()) return;
    const bool fades = look_.look().composited && !look_.look().reducedMotion;
    setWindowOpacity(fades ? 0 : 1);
    if (fades) fading_.start();
}

void SearchPanelWindow::orderOut() {
    shown_ = false;
    fading_.stop();
    // At once: a window that fades out would still take what is typed.
    QWidget::hide();
}

std::string SearchPanelWindow::query() const {
    return field_->text().toStdString();
}

void SearchPanelWindow::setQuery(const std::string& text) {
    field_->setText(asShown(text));
}

void SearchPanelWindow::setRows(const std::vector<SearchRow>& rows) {
    rows_->setRows(rows);
    rows_->setVisible(!rows.empty());
    empty_->setVisible(rows.empty());
}

void SearchPanelWindow::select(std::optional<std::size_t> row) {
    rows_->select(row);
    // Screen readers follow the keyboard, which is in the field.
    const auto chosen = rows_->currentIndex();
    field_->setAccessibleDescription(chosen.data().toString());
}

void SearchPanelWindow::setEmptyText(const std::string& text) {
    empty_->setText(asShown(text));
}

void SearchPanelWindow::setFooter(const std::string& text) {
    footer_->setText(asShown(text));
}

void SearchPanelWindow::setScanningStrip(const std::string& text) {
    strip_->setText(asShown(text));
    strip_->setVisible(!text.empty());
}

void SearchPanelWindow::copy(const std::string& text) {
    QGuiApplication::clipboard()->setText(asShown(text));
}

void SearchPanelWindow::closeEvent(QCloseEvent* event) {
    event->ignore();
    order(Command::cancel);
}

void SearchPanelWindow::mousePressEvent(QMouseEvent* event) {
    // Not to whatever lies behind.
    event->accept();
}

void SearchPanelWindow::resizeEvent(QResizeEvent* /*event*/) {
    applyShape();
    arrange();
}

void SearchPanelWindow::paintEvent(QPaintEvent* event) {
    const auto tokens = Tokens::of(look_.look());
    const auto panel = panelRect();
    QPainter painter(this);
    chrome_.paint(painter, event->rect(), rect(), devicePixelRatioF());
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    const int edge = look_.look().highContrast ? 2 : 1;
    for (const int y : {panel.top() + headHeight - 1, panel.bottom() + 1 - footHeight})
        painter.fillRect(panel.left() + edge, y, panel.width() - 2 * edge, 1, tokens.hairline);
    if (glass_.isNull() || glass_.devicePixelRatio() != devicePixelRatioF())
        glass_ =
            Icons::pixmap(QStringLiteral("search"), glassSize, tokens.soft, devicePixelRatioF());
    painter.drawPixmap(panel.left() + glassSide, panel.top() + (headHeight - 1 - glassSize) / 2,
                       glass_);
}

}  // namespace sonra
