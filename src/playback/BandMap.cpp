#include "playback/BandMap.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace sonra {

BandMap::BandMap(std::span<const float> edges, float hzPerBin, int bins) {
    int bin = 1;  // bin 0 is the mean of the signal, not a tone
    while (bin < bins && static_cast<float>(bin) * hzPerBin < edges.front()) ++bin;
    for (std::size_t i = 0; i + 1 < edges.size(); ++i) {
        const int first = bin;
        while (bin < bins && static_cast<float>(bin) * hzPerBin < edges[i + 1]) ++bin;
        const float middle = std::sqrt(edges[i] * edges[i + 1]) / hzPerBin;
        bands_.push_back({static_cast<std::size_t>(first), static_cast<std::size_t>(bin - first),
                          std::clamp(middle, 1.0F, static_cast<float>(bins - 2))});
    }
}

float BandMap::power(const Band& band, std::span<const float> powers) {
    if (band.binCount > 0) {
        const auto own = powers.subspan(band.firstBin, band.binCount);
        return std::accumulate(own.begin(), own.end(), 0.0F) / static_cast<float>(own.size());
    }
    const auto below = static_cast<std::size_t>(band.position);
    const float fraction = band.position - static_cast<float>(below);
    return powers[below] + (powers[below + 1] - powers[below]) * fraction;
}

std::vector<float> BandMap::decibels(std::span<const float> powers) const {
    std::vector<float> result;
    result.reserve(bands_.size());
    for (const auto& band : bands_) result.push_back(10 * std::log10(power(band, powers) + 1e-9F));
    return result;
}

}  // namespace sonra
