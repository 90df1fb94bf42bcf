#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

namespace sonra {

/// Finds again in a text what was found in its lower case, which may be longer. No instances and no
/// state; any thread. Nothing here fails: without an answer the offsets stay as they are.
struct LoweredOffsets {
    /// `offsets` are ascending and count the UTF-16 units of the lower case; so do the results in
    /// the text itself. Of a character that takes two units it's both.
    static std::vector<std::size_t> inText(std::string_view text, const std::vector<int>& offsets);
};

}  // namespace sonra
