#pragma once

#include <QAbstractListModel>
#include <vector>

#include "platform/SearchPanel.h"

namespace sonra {

/// The search panel's rows as Qt's views and screen readers ask for them. Main thread only.
class SearchRowModel : public QAbstractListModel {
  public:
    using QAbstractListModel::QAbstractListModel;

    void setRows(const std::vector<SearchRow>& rows);
    /// The index must be one of the model's.
    [[nodiscard]] const SearchRow& row(const QModelIndex& index) const;

    [[nodiscard]] int rowCount(const QModelIndex& parent = {}) const override;
    [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override;

  private:
    std::vector<SearchRow> rows_;
};

}  // namespace sonra
