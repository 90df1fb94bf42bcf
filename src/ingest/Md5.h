#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace sonra {

/// The MD5 digest (RFC 1321). It names messages that carry no id of their own, so that every reader
/// of a transcript gives them the same one; it secures nothing. Any thread.
std::array<std::uint8_t, 16> md5(std::string_view bytes);

/// The digest's first 8 bytes as 16 lower-case hexadecimal digits.
std::string md5Prefix16(std::string_view bytes);

}  // namespace sonra
