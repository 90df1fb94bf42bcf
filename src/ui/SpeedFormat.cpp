#include "ui/SpeedFormat.h"

#include <array>
#include <charconv>
#include <cmath>

namespace sonra::menu {

std::string formatSpeed(double speed) {
    // Room for the digits of the largest double.
    std::array<char, 320> digits{};
    const int decimals = speed == std::trunc(speed) ? 0 : 1;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), speed,
                                   std::chars_format::fixed, decimals);
    return std::string(digits.data(), end.ptr) + "x";
}

}  // namespace sonra::menu
