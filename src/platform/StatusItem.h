#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sonra {

/// A piece of a menu row's title, in the desktop's own colours unless it is a chip.
struct MenuText {
    enum class Role { label, tertiary, activeDot, chip };

    std::string text;
    Role role = Role::label;
    std::string source = {};  ///< for a chip: the agent whose colours it has

    bool operator==(const MenuText&) const = default;
};

/// One row of a menu. Rows are values: a new picture of the menu replaces the old one, and the
/// status item changes only what differs.
struct MenuRow {
    enum class Kind { action, separator, submenu };
    enum class Image { none, play, pause, skip, stop, detach };

    Kind kind = Kind::action;
    std::string
        id;  ///< tells rows of one menu apart; stable while the row stands for the same thing
    std::vector<MenuText> title;
    std::string trailing;  ///< at the right edge, as a value or a time
    std::string toolTip;
    Image image = Image::none;
    std::string imageDescription;
    bool isEnabled = true;
    std::optional<bool> isChecked;  ///< absent: the row can't be checked
    std::function<void()> onClick;

    /// A submenu's rows, made when it is about to open.
    std::function<std::vector<MenuRow>()> populate;
};

/// The program's icon in the desktop's tray, with its menu. Main thread only; on a desktop without
/// a tray it does nothing, and says so once to the user.
class StatusItem {
  public:
    enum class Icon { idle, narrating, paused, muted, synthesizing, recording, transcribing };

    virtual ~StatusItem() = default;

    virtual void setIcon(Icon icon) = 0;
    virtual void setToolTip(const std::string& toolTip) = 0;
    virtual void setMenu(std::vector<MenuRow> rows) = 0;
};

}  // namespace sonra
