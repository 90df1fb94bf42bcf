#pragma once

#include <QListView>
#include <functional>
#include <optional>
#include <vector>

#include "platform/SearchPanel.h"
#include "widgets/DesktopLook.h"
#include "widgets/Tokens.h"

namespace sonra {

class SearchRowDelegate;
class SearchRowModel;

/// The search panel's rows. Main thread only. Never takes the keyboard: its owner moves the
/// selection. The pointer selects and scrolls; how far the rows are scrolled shows at the edge.
class SearchRowList : public QListView {
  public:
    explicit SearchRowList(QWidget* parent);

    /// What the pointer did.
    std::function<void(std::size_t row)> onSelect;
    std::function<void()> onActivate;

    void setLook(const Look& look);
    void setRows(const std::vector<SearchRow>& rows);
    void select(std::optional<std::size_t> row);

  private:
    void currentChanged(const QModelIndex& current, const QModelIndex& previous) override;
    void paintEvent(QPaintEvent* event) override;
    void paintScrollMark();

    SearchRowModel* rows_;
    SearchRowDelegate* delegate_;
    Tokens tokens_ = Tokens::of(Look{});
    bool isOwnersDoing_ = false;
};

}  // namespace sonra
