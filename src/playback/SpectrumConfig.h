#pragma once

#include <vector>

/// Settings of the spectrum behind the captions, and the scale of its bars.
namespace sonra::SpectrumConfig {

inline constexpr int bandCount = 32;
inline constexpr double hopSeconds = 0.04;  ///< time between frames
inline constexpr int fftSize = 1024;        ///< samples in a window
inline constexpr float fMinHz = 60;
inline constexpr float fMaxHz = 12000;        ///< at most half the sample rate is used
inline constexpr float dynamicRangeDb = 42;   ///< below the loudest band, shown as 1 down to 0
inline constexpr float silenceFloorDb = -60;  ///< a file whose loudest band is lower is silent

/// `bands + 1` rising edges in Hz, evenly spaced on a logarithmic scale from `fMin` to `fMax`.
/// Empty if there is no band or not 0 < fMin < fMax.
std::vector<float> bandEdges(int bands, float fMin, float fMax);

}  // namespace sonra::SpectrumConfig
