#pragma once

#include <cstddef>
#include <string_view>

namespace sonra {

/// How many leading bytes of `buffer` to keep so that it doesn't end inside a UTF-8 character that
/// is still being written. All of them when its end isn't UTF-8 anyway. Any thread.
std::size_t trimToCompleteUtf8(std::string_view buffer);

}  // namespace sonra
