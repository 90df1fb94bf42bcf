#include "search/SearchPanelOnDemand.h"

#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {

SearchPanelOnDemand::SearchPanelOnDemand(Make make) : make_(std::move(make)) {}

SearchPanel& SearchPanelOnDemand::panel() {
    SONRA_ASSERT_MAIN_THREAD();
    if (!panel_) makePanel();
    return *panel_;
}

void SearchPanelOnDemand::makePanel() {
    panel_ = make_();
    panel_->onQueryChanged = [this] {
        if (onQueryChanged) onQueryChanged();
    };
    panel_->onCommand = [this](Command command) {
        if (onCommand) onCommand(command);
    };
    panel_->onSelect = [this](std::size_t row) {
        if (onSelect) onSelect(row);
    };
}

void SearchPanelOnDemand::setFrame(const Rect& frame) {
    panel().setFrame(frame);
}

void SearchPanelOnDemand::activate() {
    panel().activate();
}

void SearchPanelOnDemand::orderOut() {
    if (panel_) panel_->orderOut();
}

bool SearchPanelOnDemand::isVisible() const {
    return panel_ && panel_->isVisible();
}

std::string SearchPanelOnDemand::query() const {
    return panel_ ? panel_->query() : "";
}

void SearchPanelOnDemand::setQuery(const std::string& text) {
    panel().setQuery(text);
}

void SearchPanelOnDemand::setRows(const std::vector<SearchRow>& rows) {
    panel().setRows(rows);
}

void SearchPanelOnDemand::select(std::optional<std::size_t> row) {
    panel().select(row);
}

void SearchPanelOnDemand::setEmptyText(const std::string& text) {
    panel().setEmptyText(text);
}

void SearchPanelOnDemand::setFooter(const std::string& text) {
    panel().setFooter(text);
}

void SearchPanelOnDemand::setScanningStrip(const std::string& text) {
    panel().setScanningStrip(text);
}

void SearchPanelOnDemand::copy(const std::string& text) {
    panel().copy(text);
}

}  // namespace sonra
