#pragma once

#include <optional>
#include <string>

#include "playback/Spectrogram.h"

/// Computes the spectrogram of a whole sound file. Blocking, for a worker thread; memory grows by
/// the frames of the result only, not by the samples of the file.
namespace sonra::SpectrumAnalyzer {

/// Longer files have no spectrogram: four hours at the usual hop, and a bound for absurd headers.
inline constexpr std::size_t maxFrames = 360'000;

/// Absent when the file at `path` can't be read, is empty, or can't be analysed with these
/// settings. `fftSize` is a power of two, 8 or more. A silent file gives frames of zeros.
std::optional<Spectrogram> analyze(const std::string& path, int bandCount, double hopSeconds,
                                   int fftSize);

}  // namespace sonra::SpectrumAnalyzer
