#include "ui/HarnessBadge.h"

#include "frame/HarnessTheme.h"

namespace sonra::menu {

std::vector<MenuText> harnessBadge(std::string_view source, std::string_view following) {
    const auto& theme = HarnessTheme::current(source);
    std::vector<MenuText> title{
        {std::string(theme.chipLabel()), MenuText::Role::chip, std::string(theme.id)}};
    if (!following.empty()) title.push_back({std::string(following), MenuText::Role::label, {}});
    return title;
}

}  // namespace sonra::menu
