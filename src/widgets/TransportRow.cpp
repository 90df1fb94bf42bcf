#include "widgets/TransportRow.h"

#include <algorithm>

#include "widgets/AgentChip.h"
#include "widgets/FiguresLabel.h"
#include "widgets/LivePill.h"
#include "widgets/RoundButton.h"

namespace sonra {
namespace {

constexpr int smallButton = 32;
constexpr int largeButton = TransportRow::rowHeight;
constexpr int buttonGap = 8;
constexpr int itemGap = 12;

}  // namespace

TransportRow::TransportRow(CaptionPanelModel& model, QWidget* parent)
    : QWidget(parent),
      model_(model),
      previous_(new RoundButton(RoundButton::Kind::quiet, smallButton, this)),
      playPause_(new RoundButton(RoundButton::Kind::accent, largeButton, this)),
      next_(new RoundButton(RoundButton::Kind::quiet, smallButton, this)),
      counter_(new FiguresLabel(12.5, QFont::Medium, this)),
      agent_(new AgentChip(this)),
      speed_(new FiguresLabel(12.5, QFont::Medium, this)),
      pill_(new LivePill(this)) {
    previous_->setSymbol("previous", "Previous");
    next_->setSymbol("next", "Next");
    connect(previous_, &QAbstractButton::clicked, this, [this] { model_.onPrev(); });
    connect(playPause_, &QAbstractButton::clicked, this, [this] { model_.onPlayPause(); });
    connect(next_, &QAbstractButton::clicked, this, [this] { model_.onNext(); });
    connect(pill_, &QAbstractButton::clicked, this, [this] { model_.onJumpToLive(); });
    refresh();
}

void TransportRow::setLook(const Look& look, const Accent& accent) {
    const auto tokens = Tokens::of(look);
    for (auto* button : {previous_, playPause_, next_}) button->setLook(look, accent);
    for (auto* label : {counter_, speed_}) label->setColor(tokens.soft);
    agent_->setLook(look, accent);
    pill_->setLook(look, accent);
}

void TransportRow::refresh() {
    const bool playing = *model_.isPlaying;
    playPause_->setSymbol(playing ? "pause" : "play", playing ? "Pause" : "Play");
    const int index = *model_.chunkIndex;
    const int total = *model_.chunkTotal;
    counter_->setVisible(total >= 1);
    counter_->setText(QStringLiteral("%1/%2").arg(index).arg(total),
                      QStringLiteral("%1 of %2").arg(index).arg(total));
    const auto speed = QString::asprintf("%.2fx", *model_.speed);
    speed_->setText(speed, QStringLiteral("Speed ") + speed);
    agent_->setAgent(*model_.theme, QString::fromStdString(*model_.sessionLabel));
    pill_->setIndicator(*model_.liveIndicator, *model_.newLiveCount);
    arrange();
}

void TransportRow::resizeEvent(QResizeEvent* /*event*/) {
    arrange();
}

void TransportRow::arrange() {
    const int left = arrangeLeft();
    const int right = arrangeRight();
    arrangeMiddle(left + itemGap, right - itemGap);
}

int TransportRow::arrangeLeft() {
    int x = 0;
    for (auto* button : {previous_, playPause_, next_}) {
        button->move(x, (height() - button->height()) / 2);
        x += button->width() + buttonGap;
    }
    x += 6;
    if (counter_->isHidden()) return x - 6 - buttonGap;
    counter_->setGeometry(x, 0, counter_->sizeHint().width(), height());
    return x + counter_->width();
}

int TransportRow::arrangeRight() {
    int x = width();
    if (!pill_->isHidden()) {
        const auto size = pill_->sizeHint();
        x -= size.width();
        pill_->setGeometry(x, (height() - size.height()) / 2, size.width(), size.height());
        x -= itemGap;
    }
    x -= speed_->sizeHint().width();
    speed_->setGeometry(x, 0, speed_->sizeHint().width(), height());
    return x;
}

void TransportRow::arrangeMiddle(int left, int right) {
    const int room = right - left;
    agent_->setVisible(room >= agent_->chipWidth());
    const int wanted = std::min(agent_->sizeHint().width(), room);
    // In the row's middle, unless a neighbour stands there.
    const int x = std::clamp((width() - wanted) / 2, left, std::max(left, right - wanted));
    agent_->setGeometry(x, 0, std::max(0, wanted), height());
}

}  // namespace sonra
