#pragma once

#include <string>
#include <vector>

#include "platform/SearchPanel.h"

namespace sonra::test {

/// A search panel on no screen. The test plays the user, who types and presses keys.
class FakeSearchPanel : public SearchPanel {
  public:
    void setFrame(const Rect& newFrame) override { frame = newFrame; }
    void activate() override {
        visible_ = true;
        ++activations;
    }
    void orderOut() override { visible_ = false; }
    [[nodiscard]] bool isVisible() const override { return visible_; }
    [[nodiscard]] std::string query() const override { return query_; }
    void setQuery(const std::string& text) override { query_ = text; }
    void setRows(const std::vector<SearchRow>& newRows) override {
        rows = newRows;
        selected.reset();
        ++reloads;
    }
    void select(std::optional<std::size_t> row) override { selected = row; }
    void setEmptyText(const std::string& text) override { emptyText = text; }
    void setFooter(const std::string& text) override { footer = text; }
    void setScanningStrip(const std::string& text) override { strip = text; }
    void copy(const std::string& text) override { copied.push_back(text); }

    void type(const std::string& text) {
        query_ = text;
        onQueryChanged();
    }
    void press(Command command) const { onCommand(command); }
    void click(std::size_t row) {
        selected = row;
        onSelect(row);
    }
    [[nodiscard]] std::vector<std::string> texts() const {
        std::vector<std::string> all;
        for (const auto& row : rows) all.push_back(row.text());
        return all;
    }

    Rect frame;
    int activations = 0;
    int reloads = 0;
    std::vector<SearchRow> rows;
    std::optional<std::size_t> selected;
    std::string emptyText;
    std::string footer;
    std::string strip;
    std::vector<std::string> copied;

  private:
    std::string query_;
    bool visible_ = false;
};

}  // namespace sonra::test
