#pragma once

#include <optional>
#include <string>
#include <variant>

namespace sonra {

/// Where in the conversation the listener stands, as the caption shows it.
struct LiveIndicator {
    struct Idle {
        bool operator==(const Idle&) const = default;
    };
    struct Live {
        bool operator==(const Live&) const = default;
    };
    struct History {
        int messageIndex = 0;  ///< messages back from the newest
        int total = 0;
        bool operator==(const History&) const = default;
    };
    std::variant<Idle, Live, History> value;

    bool operator==(const LiveIndicator&) const = default;
};

/// Pure functions, any thread.
namespace LiveIndicatorFormat {

/// The pill's words; absent when the pill is hidden.
std::optional<std::string> pillLabel(const LiveIndicator& indicator);
/// The badge beside the pill; absent for none.
std::optional<std::string> newBadgeLabel(int newMessages);

}  // namespace LiveIndicatorFormat
}  // namespace sonra
