#pragma once

#include <cstdint>

namespace sonra {

/// The modifier bits of a stored key chord, as the Carbon event manager numbers them.
enum CarbonModifier : std::uint32_t {
    carbonCommandKey = 256,
    carbonShiftKey = 512,
    carbonOptionKey = 2048,
    carbonControlKey = 4096,
};

}  // namespace sonra
