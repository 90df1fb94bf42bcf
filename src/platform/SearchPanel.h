#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Geometry.h"

namespace sonra {

/// A row of the search panel: the row's words in pieces, from left to right. A value.
struct SearchRow {
    enum class Kind { project, session };
    enum class Role { marker, name, id, folder, words, separator, detail };
    /// `marker` stands before a session that is being narrated; `name` and `detail` make up a
    /// project's row; a session's has `id`, `folder` and `words`, with separators between them.
    struct Piece {
        std::string text;
        Role role = Role::words;

        bool operator==(const Piece&) const = default;
    };

    Kind kind = Kind::session;
    std::vector<Piece> pieces;
    /// What matched: UTF-16 offsets into the row's whole text, ascending, none behind its end.
    std::vector<std::size_t> highlights;
    std::string source;       ///< the agent's id
    bool isExpanded = false;  ///< a project whose sessions alone are shown

    bool operator==(const SearchRow&) const = default;

    [[nodiscard]] std::string text() const {
        std::string whole;
        for (const auto& piece : pieces) whole += piece.text;
        return whole;
    }
};

/// The search box that floats over everything: a field for the query, rows, a line of hints. Unlike
/// the caption panel it takes the keyboard while it is shown.
///
/// Main thread only; hidden when made; nothing here fails. Query, rows and texts stay while it is
/// hidden. Its owner sets the callbacks, which run on the main thread and only for what the user
/// did, not for what the owner asked for.
class SearchPanel {
  public:
    enum class Command { moveUp, moveDown, cancel, activate, copy };

    std::function<void()> onQueryChanged;
    std::function<void(Command command)> onCommand;
    std::function<void(std::size_t row)> onSelect;  ///< a click on a row

    virtual ~SearchPanel() = default;

    virtual void setFrame(const Rect& frame) = 0;
    /// Shows it above all, gives it the keyboard and selects the query's text.
    virtual void activate() = 0;
    /// Hides it; the keyboard goes back to whoever had it.
    virtual void orderOut() = 0;
    [[nodiscard]] virtual bool isVisible() const = 0;

    [[nodiscard]] virtual std::string query() const = 0;
    virtual void setQuery(const std::string& text) = 0;
    /// None of the rows is selected then.
    virtual void setRows(const std::vector<SearchRow>& rows) = 0;
    /// Also scrolls it into view.
    virtual void select(std::optional<std::size_t> row) = 0;
    /// What is shown instead of rows when there are none.
    virtual void setEmptyText(const std::string& text) = 0;
    virtual void setFooter(const std::string& text) = 0;
    /// Progress of the index; an empty text hides it.
    virtual void setScanningStrip(const std::string& text) = 0;
    /// Puts the text on the clipboard.
    virtual void copy(const std::string& text) = 0;
};

}  // namespace sonra
