#include "widgets/SearchRowDelegate.h"

#include <QFontDatabase>
#include <QFontMetricsF>
#include <QPainter>
#include <QStyleOptionViewItem>
#include <algorithm>
#include <cmath>

#include "widgets/PieceLayout.h"
#include "widgets/SearchRowModel.h"

namespace sonra {
namespace {

using Piece = SearchRow::Piece;
using Role = SearchRow::Role;

constexpr double rowFontSize = 13;
constexpr int rowMargin = 8;
constexpr int textSide = 38;  ///< the gutter before it holds the row's mark
constexpr int textEnd = 20;   ///< as far from the panel's right edge
constexpr double markX = 25;  ///< the middle of the gutter's mark
constexpr double folderRoom = 200;
constexpr double dotRadius = 3.5;
constexpr double separatorGap = 2;  ///< beside what the blanks give

QFont fontOf(Role role) {
    auto font = Tokens::font(rowFontSize, role == Role::name ? QFont::Medium : QFont::Normal);
    if (role == Role::id) {
        font.setFamilies({QFontDatabase::systemFont(QFontDatabase::FixedFont).family()});
        // A fixed pitch looks larger than the other letters of its size.
        font.setPixelSize(12);
    }
    return font;
}

/// The offsets that fall into a piece, counted from its start.
std::vector<int> within(const std::vector<std::size_t>& offsets, std::size_t start,
                        std::size_t length) {
    std::vector<int> inside;
    for (const auto offset : offsets)
        if (offset >= start && offset - start < length)
            inside.push_back(static_cast<int>(offset - start));
    return inside;
}

double widthOf(const std::vector<Piece>& pieces, Role role) {
    double width = 0;
    for (const auto& piece : pieces)
        if (piece.role == role)
            width +=
                QFontMetricsF(fontOf(role)).horizontalAdvance(QString::fromStdString(piece.text));
    return width;
}

}  // namespace

SearchRowDelegate::SearchRowDelegate(const SearchRowModel& model, QObject* parent)
    : QAbstractItemDelegate(parent), model_(model) {}

void SearchRowDelegate::setLook(const Look& look) {
    look_ = look;
    tokens_ = Tokens::of(look);
}

QSize SearchRowDelegate::sizeHint(const QStyleOptionViewItem& /*option*/,
                                  const QModelIndex& /*index*/) const {
    return {0, rowHeight};
}

void SearchRowDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                              const QModelIndex& index) const {
    const auto& content = model_.row(index);
    const auto accent = Accent::of(HarnessTheme::current(content.source), tokens_);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    paintGround(*painter, option, accent);
    paintMark(*painter, option.rect, content);
    paintPieces(*painter, option.rect, content, accent);
    painter->restore();
}

void SearchRowDelegate::paintGround(QPainter& painter, const QStyleOptionViewItem& option,
                                    const Accent& accent) const {
    const bool isChosen = option.state.testFlag(QStyle::State_Selected);
    if (!isChosen && !option.state.testFlag(QStyle::State_MouseOver)) return;
    const auto box = QRectF(option.rect).adjusted(rowMargin, 0, -rowMargin, 0);
    painter.setPen(Qt::NoPen);
    painter.setBrush(tokens_.fill);
    if (isChosen && look_.highContrast) {
        // A frame shows what is chosen; a wash would take contrast from the words.
        painter.setPen(QPen(tokens_.text, 1.5));
        painter.setBrush(Qt::NoBrush);
    } else if (isChosen) {
        auto wash = accent;
        const float strength = tokens_.dark ? 0.26F : 0.24F;
        wash.start.setAlphaF(strength);
        wash.end.setAlphaF(strength);
        painter.setBrush(wash.across(box));
    }
    const double inset = isChosen && look_.highContrast ? 0.75 : 0;
    painter.drawRoundedRect(box.adjusted(inset, inset, -inset, -inset), Tokens::rowRadius,
                            Tokens::rowRadius);
}

void SearchRowDelegate::paintMark(QPainter& painter, const QRectF& row,
                                  const SearchRow& content) const {
    const QPointF middle(row.left() + markX, row.center().y());
    if (content.kind == SearchRow::Kind::project) {
        painter.save();
        painter.translate(middle);
        if (content.isExpanded) painter.rotate(90);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(tokens_.soft, 1.5, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        const QPointF arrow[] = {{-1.75, -3.5}, {1.75, 0}, {-1.75, 3.5}};
        painter.drawPolyline(arrow, 3);
        painter.restore();
    }
    const auto isMarker = [](const Piece& piece) { return piece.role == Role::marker; };
    if (std::ranges::none_of(content.pieces, isMarker)) return;
    painter.setPen(Qt::NoPen);
    painter.setBrush(colorOf(Role::marker));
    painter.drawEllipse(middle, dotRadius, dotRadius);
}

void SearchRowDelegate::paintPieces(QPainter& painter, const QRectF& row, const SearchRow& content,
                                    const Accent& accent) const {
    const QFontMetricsF metrics(Tokens::font(rowFontSize));
    const double baseline =
        std::round(row.center().y() + (metrics.ascent() - metrics.descent()) / 2);
    const double right = row.right() - textEnd;
    double x = row.left() + textSide;
    std::size_t start = 0;
    for (const auto& piece : content.pieces) {
        const auto text = QString::fromStdString(piece.text);
        const auto length = static_cast<std::size_t>(text.size());
        const auto hits = within(content.highlights, start, length);
        start += length;
        if (piece.role == Role::marker) continue;
        double room = right - x;
        if (piece.role == Role::folder) room = std::min(room, folderRoom);
        // What a long name would push out is worth more than its end.
        if (piece.role == Role::name) room -= widthOf(content.pieces, Role::detail);
        const PieceLayout line(text, hits,
                               {.font = fontOf(piece.role),
                                .color = colorOf(piece.role),
                                .emphasis = look_.highContrast ? tokens_.text : accent.textStart,
                                .underlinesEmphasis = tokens_.underlinesActive},
                               room);
        const double gap = piece.role == Role::separator ? separatorGap : 0;
        line.draw(painter, {x + gap, baseline});
        x += line.width() + 2 * gap;
    }
}

QColor SearchRowDelegate::colorOf(Role role) const {
    switch (role) {
        case Role::marker:
            if (look_.highContrast) return tokens_.text;
            return tokens_.dark ? QColor(0x33, 0xd1, 0x7a) : QColor(0x1c, 0x8f, 0x4f);
        case Role::id:
        case Role::detail:
            return tokens_.soft;
        case Role::separator:
            return tokens_.dim;
        default:
            return tokens_.text;
    }
}

}  // namespace sonra
