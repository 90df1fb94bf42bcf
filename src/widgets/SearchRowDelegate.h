#pragma once

#include <QAbstractItemDelegate>

#include "platform/SearchPanel.h"
#include "widgets/Accent.h"

namespace sonra {

class SearchRowModel;

/// Paints the search panel's rows: what matched in bold in the agent's colour, the chosen row on a
/// wash of it, a dot before sessions that are narrated and an arrow before projects. Main thread
/// only.
class SearchRowDelegate : public QAbstractItemDelegate {
  public:
    static constexpr int rowHeight = 36;

    SearchRowDelegate(const SearchRowModel& model, QObject* parent);

    void setLook(const Look& look);

    void paint(QPainter* painter, const QStyleOptionViewItem& option,
               const QModelIndex& index) const override;
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const override;

  private:
    void paintGround(QPainter& painter, const QStyleOptionViewItem& option,
                     const Accent& accent) const;
    void paintMark(QPainter& painter, const QRectF& row, const SearchRow& content) const;
    void paintPieces(QPainter& painter, const QRectF& row, const SearchRow& content,
                     const Accent& accent) const;
    [[nodiscard]] QColor colorOf(SearchRow::Role role) const;

    const SearchRowModel& model_;
    Look look_;
    Tokens tokens_ = Tokens::of(Look{});
};

}  // namespace sonra
