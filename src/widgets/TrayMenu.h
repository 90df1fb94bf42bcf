#pragma once

#include <QColor>
#include <QMenu>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "widgets/MenuLabel.h"

namespace sonra {

/// A menu that takes the rows it is given in place: a row that keeps its id keeps its action, so
/// that a menu on the screen stays, and only what differs is changed.
///
/// Main thread only. Submenus are filled when they, or the menu above them, are about to open: some
/// panels show what was there at that moment. Of rows with one id only the first is shown.
class TrayMenu : public QMenu {
  public:
    TrayMenu(MenuDrawnBy drawer, const QColor& ink, QWidget* parent = nullptr);
    ~TrayMenu() override;

    void setRows(std::vector<MenuRow> rows);
    /// The colour of the rows' icons from now on.
    void setInk(const QColor& ink);

  private:
    struct Entry;

    std::unique_ptr<Entry> make(const MenuRow& row);
    void update(Entry& entry, MenuRow row, bool isNew) const;
    void fill(const std::string& id);
    void click(const std::string& id);
    void place(const std::vector<QAction*>& wanted);

    const MenuDrawnBy drawer_;
    QColor ink_;
    std::unordered_map<std::string, std::unique_ptr<Entry>> entries_;
};

}  // namespace sonra
