#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace sonra {

/// The SHA-256 digest (FIPS 180-4). It shortens names and tells texts apart in the log; for secrets
/// take a library that is made for them. Any thread.
std::array<std::uint8_t, 32> sha256(std::string_view bytes);

}  // namespace sonra
