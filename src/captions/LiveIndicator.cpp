#include "captions/LiveIndicator.h"

namespace sonra::LiveIndicatorFormat {

std::optional<std::string> pillLabel(const LiveIndicator& indicator) {
    if (std::holds_alternative<LiveIndicator::Live>(indicator.value)) return "LIVE";
    if (const auto* place = std::get_if<LiveIndicator::History>(&indicator.value))
        return "← " + std::to_string(place->messageIndex) + " / " + std::to_string(place->total);
    return std::nullopt;
}

std::optional<std::string> newBadgeLabel(int newMessages) {
    if (newMessages < 1) return std::nullopt;
    return std::string(1, '+').append(std::to_string(newMessages)).append(" new");
}

}  // namespace sonra::LiveIndicatorFormat
