#pragma once

#include <functional>
#include <memory>

#include "platform/SearchPanel.h"

namespace sonra {

/// A search panel that is made when it is first shown or told something to show: most runs begin
/// and end without a search, and a start need not wait for its window.
///
/// Main thread only; owns the panel. `make` must return one; it is called once at most.
class SearchPanelOnDemand : public SearchPanel {
  public:
    using Make = std::function<std::unique_ptr<SearchPanel>()>;

    explicit SearchPanelOnDemand(Make make);

    void setFrame(const Rect& frame) override;
    void activate() override;
    void orderOut() override;
    [[nodiscard]] bool isVisible() const override;
    [[nodiscard]] std::string query() const override;
    void setQuery(const std::string& text) override;
    void setRows(const std::vector<SearchRow>& rows) override;
    void select(std::optional<std::size_t> row) override;
    void setEmptyText(const std::string& text) override;
    void setFooter(const std::string& text) override;
    void setScanningStrip(const std::string& text) override;
    void copy(const std::string& text) override;

  private:
    SearchPanel& panel();
    void makePanel();

    const Make make_;
    std::unique_ptr<SearchPanel> panel_;
};

}  // namespace sonra
