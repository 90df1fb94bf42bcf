#include "ui/RelativeTime.h"

#include <cstdint>

namespace sonra::menu {
namespace {

constexpr double activeForMs = 900'000;

}  // namespace

std::string relativeTime(double mtimeMs, double nowMs) {
    if (mtimeMs <= 0) return {};
    const double seconds = (nowMs - mtimeMs) / 1000;
    if (seconds < 60) return "now";
    const auto minutes = static_cast<std::int64_t>(seconds / 60);
    if (minutes < 60) return std::to_string(minutes) + "m";
    const auto hours = minutes / 60;
    if (hours < 24) return std::to_string(hours) + "h";
    return std::to_string(hours / 24) + "d";
}

bool isRecent(double mtimeMs, double nowMs) {
    return mtimeMs > 0 && nowMs - mtimeMs <= activeForMs;
}

}  // namespace sonra::menu
