#include "widgets/SearchRowList.h"

#include <QPainter>
#include <QScopedValueRollback>
#include <QScrollBar>

#include "widgets/SearchRowDelegate.h"
#include "widgets/SearchRowModel.h"

namespace sonra {
namespace {

constexpr double markWidth = 3;
constexpr double markSide = 2.5;
constexpr double leastMark = 24;

}  // namespace

SearchRowList::SearchRowList(QWidget* parent)
    : QListView(parent),
      rows_(new SearchRowModel(this)),
      delegate_(new SearchRowDelegate(*rows_, this)) {
    setModel(rows_);
    setItemDelegate(delegate_);
    setAccessibleName(QStringLiteral("Results"));
    setFocusPolicy(Qt::NoFocus);
    setFrameShape(QFrame::NoFrame);
    setAutoFillBackground(false);
    viewport()->setAutoFillBackground(false);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setUniformItemSizes(true);
    setAutoScroll(false);
    // The row at the top is always a whole one.
    setVerticalScrollMode(QAbstractItemView::ScrollPerItem);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setMouseTracking(true);
    connect(this, &QAbstractItemView::doubleClicked, this, [this] {
        if (onActivate) onActivate();
    });
    // The rows pass beneath the mark, which stays.
    connect(verticalScrollBar(), &QScrollBar::valueChanged, viewport(),
            [this] { viewport()->update(); });
}

void SearchRowList::setLook(const Look& look) {
    tokens_ = Tokens::of(look);
    delegate_->setLook(look);
    viewport()->update();
}

void SearchRowList::setRows(const std::vector<SearchRow>& rows) {
    const QScopedValueRollback guard(isOwnersDoing_, true);
    rows_->setRows(rows);
    verticalScrollBar()->setValue(0);
}

void SearchRowList::select(std::optional<std::size_t> row) {
    const QScopedValueRollback guard(isOwnersDoing_, true);
    const auto index = row ? rows_->index(static_cast<int>(*row)) : QModelIndex();
    setCurrentIndex(index);
    if (index.isValid()) scrollTo(index);
}

void SearchRowList::currentChanged(const QModelIndex& current, const QModelIndex& previous) {
    QListView::currentChanged(current, previous);
    if (!isOwnersDoing_ && current.isValid() && onSelect)
        onSelect(static_cast<std::size_t>(current.row()));
}

void SearchRowList::paintEvent(QPaintEvent* event) {
    QListView::paintEvent(event);
    if (verticalScrollBar()->maximum() > 0) paintScrollMark();
}

void SearchRowList::paintScrollMark() {
    const auto* bar = verticalScrollBar();
    const double track = viewport()->height();
    const double whole = bar->maximum() + bar->pageStep();
    const double length = std::max(leastMark, track * bar->pageStep() / whole);
    const double top = (track - length) * bar->value() / bar->maximum();
    QPainter painter(viewport());
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tokens_.dim);
    painter.drawRoundedRect(
        QRectF(viewport()->width() - markWidth - markSide, top, markWidth, length), markWidth / 2,
        markWidth / 2);
}

}  // namespace sonra
