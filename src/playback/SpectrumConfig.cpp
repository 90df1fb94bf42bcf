#include "playback/SpectrumConfig.h"

#include <cmath>

namespace sonra::SpectrumConfig {

std::vector<float> bandEdges(int bands, float fMin, float fMax) {
    if (bands < 1 || !(fMin > 0 && fMin < fMax)) return {};
    const float low = std::log10(fMin);
    const float high = std::log10(fMax);
    std::vector<float> edges;
    edges.reserve(static_cast<std::size_t>(bands) + 1);
    for (int i = 0; i <= bands; ++i) {
        const float share = static_cast<float>(i) / static_cast<float>(bands);
        edges.push_back(std::pow(10.0F, low + (high - low) * share));
    }
    return edges;
}

}  // namespace sonra::SpectrumConfig
