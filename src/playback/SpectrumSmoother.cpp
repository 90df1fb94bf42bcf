#include "playback/SpectrumSmoother.h"

#include <algorithm>

namespace sonra {
namespace {

/// Bars below this come to rest, which the decay alone would never let them.
constexpr float restLevel = 0.0005F;

}  // namespace

SpectrumSmoother::SpectrumSmoother(int bandCount, float attack, float decay, float peakFall)
    : attack_(attack), decay_(decay), peakFall_(peakFall) {
    const auto count = static_cast<std::size_t>(std::max(bandCount, 0));
    bars_.levels.resize(count);
    bars_.peaks.resize(count);
}

SpectrumSmoother::Bars SpectrumSmoother::advance(std::span<const float> target) {
    for (std::size_t i = 0; i < bars_.levels.size(); ++i)
        advanceBand(i, i < target.size() ? target[i] : 0);
    return bars_;
}

void SpectrumSmoother::advanceBand(std::size_t band, float target) {
    float& level = bars_.levels[band];
    float& peak = bars_.peaks[band];
    const float wanted = target > 0 ? std::min(target, 1.0F) : 0;
    level += (wanted - level) * (level < wanted ? attack_ : decay_);
    if (level < restLevel) level = 0;
    peak = peak <= level ? level : std::max(level, peak - peakFall_);
}

void SpectrumSmoother::reset() {
    std::ranges::fill(bars_.levels, 0.0F);
    std::ranges::fill(bars_.peaks, 0.0F);
}

}  // namespace sonra
