#include "widgets/SearchRowModel.h"

namespace sonra {

void SearchRowModel::setRows(const std::vector<SearchRow>& rows) {
    beginResetModel();
    rows_ = rows;
    endResetModel();
}

const SearchRow& SearchRowModel::row(const QModelIndex& index) const {
    return rows_[static_cast<std::size_t>(index.row())];
}

int SearchRowModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(rows_.size());
}

QVariant SearchRowModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) return {};
    if (role == Qt::DisplayRole) return QString::fromStdString(row(index).text());
    if (role == Qt::AccessibleDescriptionRole && row(index).isExpanded)
        return QStringLiteral("expanded");
    return {};
}

}  // namespace sonra
