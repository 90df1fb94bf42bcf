#pragma once

#include <optional>
#include <string_view>
#include <vector>

namespace sonra::VoiceCatalog {

/// A voice that the user can choose.
struct Entry {
    std::string_view id;
    std::string_view name;
    std::string_view descriptor;

    bool operator==(const Entry&) const = default;
};

/// Every voice, in the order of the menu and the pickers.
const std::vector<Entry>& all();
/// The few that are offered on the first day, in the order in which they are offered.
const std::vector<Entry>& onboarding();
/// Exact comparison of the id.
std::optional<Entry> entry(std::string_view id);

}  // namespace sonra::VoiceCatalog
