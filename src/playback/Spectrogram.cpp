#include "playback/Spectrogram.h"

#include <cmath>

namespace sonra {

std::vector<float> Spectrogram::bands(double time) const {
    if (frames.empty()) return std::vector<float>(static_cast<std::size_t>(bandCount));
    const double position = time > 0 ? time / hopSeconds : 0;
    const double whole = std::floor(position);
    if (!(whole < static_cast<double>(frames.size() - 1))) return frames.back();
    const auto index = static_cast<std::size_t>(whole);
    const auto fraction = static_cast<float>(position - whole);
    std::vector<float> result = frames[index];
    const auto& next = frames[index + 1];
    for (std::size_t i = 0; i < result.size(); ++i) result[i] += (next[i] - result[i]) * fraction;
    return result;
}

}  // namespace sonra
