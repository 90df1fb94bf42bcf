#include "widgets/CaptionPanel.h"

#include <QCloseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <cmath>

#include "widgets/FollowedLook.h"
#include "widgets/HairlineProgress.h"
#include "widgets/KaraokeFlow.h"
#include "widgets/PanelWindowHints.h"
#include "widgets/RoundButton.h"
#include "widgets/SpectrumBackdrop.h"
#include "widgets/StatusLine.h"
#include "widgets/TransportRow.h"
#include "widgets/XcbConnection.h"

namespace sonra {
namespace {

/// Above it is the line of status.
constexpr int textTop = 24;
constexpr int statusTop = 8;
constexpr int rowSide = 20;
constexpr int rowBottom = 13;
constexpr int bodyGap = 10;
constexpr int spectrumSide = 24;
/// The bars' part of the body.
constexpr double spectrumShare = 0.7;
constexpr int closeSize = 24;
/// How long a window manager may take to do as it was asked.
constexpr int settleTime = 400;
/// A drag is reported once it pauses.
constexpr int reportTime = 120;

QRect toRect(const Rect& frame) {
    return QRectF(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height).toRect();
}

}  // namespace

CaptionPanel::CaptionPanel(CaptionPanelModel& model)
    : CaptionPanel(model, std::make_unique<FollowedLook>()) {}

CaptionPanel::CaptionPanel(CaptionPanelModel& model, std::unique_ptr<DesktopLook> own)
    : CaptionPanel(model, *own) {
    ownLook_ = std::move(own);
}

CaptionPanel::CaptionPanel(CaptionPanelModel& model, DesktopLook& look)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                           Qt::WindowDoesNotAcceptFocus),
      model_(model),
      look_(look),
      drag_(
          *this, [this] { return panelRect(); }, [this] { settling_.stop(); }),
      spectrum_(new SpectrumBackdrop(this)),
      flow_(new KaraokeFlow(this)),
      placeholder_(new StatusLine(16, this)),
      status_(new StatusLine(11.5, this)),
      transport_(new TransportRow(model, this)),
      progress_(new HairlineProgress(this)),
      close_(new RoundButton(RoundButton::Kind::bare, closeSize, this)),
      panel_(0, 0, 820, 260) {
    prepareWindow();
    connectParts();
    applyLook();
    flow_->setFontSize(*model_.fontSize);
    refreshText();
    refreshPosition();
    spectrum_->setLevels(*model_.spectrum, *model_.spectrumPeaks);
    progress_->setFraction(*model_.progress);
}

CaptionPanel::~CaptionPanel() {
    model_.onChange = nullptr;
}

void CaptionPanel::prepareWindow() {
    setWindowTitle(QStringLiteral("Sonra captions"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_TranslucentBackground);
    // The window is never the active one.
    setAttribute(Qt::WA_AlwaysShowToolTips);
    setAttribute(Qt::WA_QuitOnClose, false);
    setFocusPolicy(Qt::NoFocus);
    setMouseTracking(true);
    close_->setSymbol("close", "Hide captions");
    settling_.setSingleShot(true);
    settling_.setInterval(settleTime);
    reporting_.setSingleShot(true);
    reporting_.setInterval(reportTime);
    framing_.setDuration(Tokens::frameTime);
    framing_.setEasingCurve(QEasingCurve::OutCubic);
}

void CaptionPanel::connectParts() {
    model_.onChange = [this](const void* field) { noteChange(field); };
    progress_->onScrub = [this](double fraction) { model_.onScrub(fraction); };
    connect(close_, &QAbstractButton::clicked, this, [this] {
        if (onCloseRequested) onCloseRequested();
    });
    connect(&look_, &DesktopLook::changed, this, [this] { applyLook(); });
    connect(&settling_, &QTimer::timeout, this, [this] { endSettling(); });
    connect(&reporting_, &QTimer::timeout, this, [this] {
        if (onFrameChanged) onFrameChanged();
    });
    connect(&framing_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { setGeometry(value.toRect()); });
    connect(&framing_, &QVariantAnimation::finished, this, [this] { settle(); });
    connect(&fading_, &QVariantAnimation::valueChanged, this,
            [this](const QVariant& value) { showOpacity(value.toDouble()); });
    connect(&fading_, &QVariantAnimation::finished, this, [this] {
        if (!shown_) QWidget::hide();
    });
}

void CaptionPanel::noteChange(const void* field) {
    if (field == &model_.spectrum || field == &model_.spectrumPeaks)
        spectrum_->setLevels(*model_.spectrum, *model_.spectrumPeaks);
    else if (field == &model_.progress)
        progress_->setFraction(*model_.progress);
    else if (field == &model_.activeWordRange || field == &model_.pastEndIndex)
        refreshPosition();
    else if (field == &model_.chunkText)
        refreshText();
    else if (field == &model_.status)
        refreshStatus();
    else if (field == &model_.fontSize)
        flow_->setFontSize(*model_.fontSize);
    else if (field == &model_.theme)
        applyLook();
    else if (field != &model_.elapsed && field != &model_.duration)
        transport_->refresh();
}

void CaptionPanel::refreshPosition() {
    flow_->setPosition(*model_.activeWordRange, *model_.pastEndIndex);
}

void CaptionPanel::refreshText() {
    flow_->setText(*model_.chunkText);
    refreshStatus();
}

void CaptionPanel::refreshStatus() {
    const auto& status = *model_.status;
    const auto text = NarrationStatusFormat::placeholder(status);
    const auto line = QString::fromStdString(text.value_or(""));
    const bool spins = NarrationStatusFormat::showsSpinner(status);
    // The owner may have put the idle placeholder into an empty window as its text.
    const bool hasWords =
        flow_->hasWords() && *model_.chunkText != NarrationStatusFormat::placeholder({});
    flow_->setVisible(hasWords);
    placeholder_->setStatus(hasWords ? QString() : line, spins);
    // Words that stand there while nothing plays need no comment.
    const bool isIdle = status.phase == NarrationStatus::Phase::idle;
    status_->setStatus(hasWords && !isIdle ? line : QString(), spins);
    arrange();
}

void CaptionPanel::applyLook() {
    const auto& look = look_.look();
    const auto accent = Accent::of(*model_.theme, Tokens::of(look));
    chrome_.setLook(look);
    spectrum_->setLook(look, accent);
    flow_->setLook(look, accent);
    placeholder_->setLook(look, accent);
    status_->setLook(look, accent);
    transport_->setLook(look, accent);
    transport_->refresh();
    progress_->setLook(look, accent);
    close_->setLook(look, accent);
    const auto margins = chrome_.margins();
    // A larger least size may resize the window by itself, which isn't the user's doing.
    settle();
    setMinimumSize(QRect(0, 0, leastWidth, leastHeight).marginsAdded(margins).size());
    setGeometry(windowGeometryFor(panel_));
    applyShape();
    arrange();
    update();
}

void CaptionPanel::applyShape() {
    if (look_.look().composited)
        clearMask();
    else
        setMask(chrome_.mask(size()));
    const auto grip = look_.look().composited ? PanelDrag::outerGrip : 0;
    PanelWindowHints::setReach(*this, panelRect().marginsAdded({grip, grip, grip, grip}),
                               chrome_.margins());
}

void CaptionPanel::arrange() {
    const auto panel = panelRect();
    const QRect row(panel.left() + rowSide,
                    panel.bottom() + 1 - rowBottom - TransportRow::rowHeight,
                    panel.width() - 2 * rowSide, TransportRow::rowHeight);
    transport_->setGeometry(row);
    const QRect body(panel.left(), panel.top() + textTop, panel.width(),
                     row.top() - bodyGap - panel.top() - textTop + KaraokeFlow::endPadding / 2);
    flow_->setGeometry(body);
    const int bars = static_cast<int>(std::round(body.height() * spectrumShare));
    spectrum_->setGeometry(panel.left() + spectrumSide, row.top() - bodyGap - bars,
                           panel.width() - 2 * spectrumSide, bars);
    progress_->setGeometry(panel.left(), panel.bottom() + 1 - HairlineProgress::reach,
                           panel.width(), HairlineProgress::reach);
    close_->move(panel.right() - closeSize - 9, panel.top() + 9);
    const auto line = status_->sizeHint();
    status_->setGeometry(panel.left() + KaraokeFlow::sidePadding, panel.top() + statusTop,
                         line.width(), line.height());
    QRect middle(QPoint(), placeholder_->sizeHint());
    middle.moveCenter(
        QRect(panel.left(), panel.top(), panel.width(), row.top() - panel.top()).center());
    placeholder_->setGeometry(middle);
}

QRect CaptionPanel::panelRect() const {
    return rect().marginsRemoved(chrome_.margins());
}

QRect CaptionPanel::windowGeometryFor(const QRect& panel) const {
    return panel.marginsAdded(chrome_.margins());
}

void CaptionPanel::setFrame(const Rect& frame, bool animated) {
    panel_ = toRect(frame);
    reporting_.stop();
    framing_.stop();
    settle();
    const auto goal = windowGeometryFor(panel_);
    if (!animated || !shown_ || look_.look().reducedMotion) return setGeometry(goal);
    framing_.setStartValue(geometry());
    framing_.setEndValue(goal);
    framing_.start();
}

Rect CaptionPanel::frame() const {
    return {{double(panel_.x()), double(panel_.y())},
            {double(panel_.width()), double(panel_.height())}};
}

void CaptionPanel::orderFront() {
    const bool wasMapped = QWidget::isVisible();
    if (!shown_) {
        shown_ = true;
        settle();
        fading_.stop();
        if (!wasMapped) {
            winId();
            PanelWindowHints::prepareToShow(*this);
            showOpacity(fades() ? 0 : opacity_);
            QWidget::show();
            // Qt may take the window to be at the origin after it is shown for the first time.
            move(windowGeometryFor(panel_).topLeft());
            applyShape();
            PanelWindowHints::claimAllDesktops(*this);
        }
        fadeTo(opacity_, Tokens::fadeIn);
    }
    if (XcbConnection::get()) raise();
}

void CaptionPanel::orderOut() {
    if (!shown_) return;
    shown_ = false;
    if (reporting_.isActive()) {
        reporting_.stop();
        if (onFrameChanged) onFrameChanged();
    }
    fadeTo(0, Tokens::fadeOut);
}

void CaptionPanel::setOpacity(double opacity) {
    opacity_ = opacity;
    if (shown_ && fading_.state() == QAbstractAnimation::Stopped) showOpacity(opacity);
}

bool CaptionPanel::fades() const {
    return XcbConnection::get() && look_.look().composited && !look_.look().reducedMotion;
}

void CaptionPanel::showOpacity(double opacity) {
    // Qt's other platforms complain that they can't.
    if (XcbConnection::get()) setWindowOpacity(opacity);
}

void CaptionPanel::fadeTo(double opacity, int duration) {
    fading_.stop();
    if (!fades()) {
        showOpacity(opacity_);
        if (!shown_) QWidget::hide();
        return;
    }
    fading_.setDuration(duration);
    fading_.setStartValue(windowOpacity());
    fading_.setEndValue(opacity);
    fading_.start();
}

void CaptionPanel::settle() {
    if (shown_) settling_.start();
}

void CaptionPanel::endSettling() {
    // Where the window manager had other ideas, they hold.
    const auto truth = PanelWindowHints::serverPosition(*this);
    const auto scale = devicePixelRatioF();
    const auto place = truth ? (QPointF(*truth) / scale).toPoint() : pos();
    panel_ = QRect(place, size()).marginsRemoved(chrome_.margins());
}

void CaptionPanel::noteGeometry() {
    const bool asked = settling_.isActive() || framing_.state() == QAbstractAnimation::Running;
    if (!shown_ || asked) return;
    const auto now = geometry().marginsRemoved(chrome_.margins());
    if (now == panel_) return;
    panel_ = now;
    reporting_.start();
}

void CaptionPanel::moveEvent(QMoveEvent* /*event*/) {
    noteGeometry();
}

void CaptionPanel::resizeEvent(QResizeEvent* /*event*/) {
    applyShape();
    arrange();
    noteGeometry();
}

void CaptionPanel::closeEvent(QCloseEvent* event) {
    event->ignore();
    if (onCloseRequested) onCloseRequested();
}

void CaptionPanel::mousePressEvent(QMouseEvent* event) {
    drag_.press(*event);
}

void CaptionPanel::mouseMoveEvent(QMouseEvent* event) {
    drag_.move(*event);
}

void CaptionPanel::mouseReleaseEvent(QMouseEvent* /*event*/) {
    drag_.release();
}

void CaptionPanel::paintEvent(QPaintEvent* event) {
    QPainter painter(this);
    chrome_.paint(painter, event->rect(), rect(), devicePixelRatioF());
}

}  // namespace sonra
