#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/StatusItem.h"

namespace sonra::test {

/// The words of a title, without the roles of its pieces.
inline std::string words(const std::vector<MenuText>& title) {
    std::string joined;
    for (const auto& piece : title) joined += piece.text;
    return joined;
}

/// Remembers what the tray would show.
class FakeStatusItem : public StatusItem {
  public:
    void setIcon(Icon newIcon) override { icon = newIcon; }
    void setToolTip(const std::string& newToolTip) override { toolTip = newToolTip; }
    void setMenu(std::vector<MenuRow> newRows) override { rows = std::move(newRows); }

    [[nodiscard]] const MenuRow& row(const std::string& id) const { return rowIn(rows, id); }
    [[nodiscard]] bool has(const std::string& id) const {
        for (const auto& candidate : rows)
            if (candidate.id == id) return true;
        return false;
    }
    /// Opens a submenu as the desktop does.
    [[nodiscard]] std::vector<MenuRow> open(const std::string& id) const {
        return row(id).populate();
    }
    [[nodiscard]] std::vector<std::string> titles() const { return titlesOf(rows); }

    static const MenuRow& rowIn(const std::vector<MenuRow>& rows, const std::string& id) {
        for (const auto& candidate : rows)
            if (candidate.id == id) return candidate;
        throw std::out_of_range("no row " + id);
    }
    /// Title of each row; a separator is "-".
    static std::vector<std::string> titlesOf(const std::vector<MenuRow>& rows) {
        std::vector<std::string> titles;
        titles.reserve(rows.size());
        for (const auto& candidate : rows)
            titles.push_back(candidate.kind == MenuRow::Kind::separator ? "-"
                                                                        : words(candidate.title));
        return titles;
    }

    Icon icon = Icon::idle;
    std::string toolTip;
    std::vector<MenuRow> rows;
};

}  // namespace sonra::test
