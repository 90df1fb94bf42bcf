#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace sonra {

/// The SHA-256 digest. It shortens names and tells texts apart in the log. Any thread.
std::array<std::uint8_t, 32> sha256(std::string_view bytes);

}  // namespace sonra
