#pragma once

#include <vector>

namespace sonra {

/// How loud each band of a sound file is over time: one frame for each `hopSeconds`, each with
/// `bandCount` values from 0 to 1. A value; reading it is safe from any thread.
struct Spectrogram {
    int bandCount = 0;
    double hopSeconds = 0;
    std::vector<std::vector<float>> frames;
    double duration = 0;  ///< seconds

    /// The bands at `time` seconds, between two frames in proportion. Before the start counts as
    /// the start, past the end as the last frame; zeros if there are no frames.
    [[nodiscard]] std::vector<float> bands(double time) const;
};

}  // namespace sonra
