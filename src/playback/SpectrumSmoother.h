#pragma once

#include <span>
#include <vector>

namespace sonra {

/// Turns band values into bars that move smoothly and peaks that hang above them and sink. Fed once
/// a tick of progress. A value, for one thread at a time.
class SpectrumSmoother {
  public:
    struct Bars {
        std::vector<float> levels;
        std::vector<float> peaks;
    };

    /// `attack` and `decay` are the shares of the way that a bar goes up or down in one tick;
    /// `peakFall` is how far a peak sinks.
    explicit SpectrumSmoother(int bandCount, float attack = 0.7F, float decay = 0.32F,
                              float peakFall = 0.045F);

    /// One tick towards `target`; bands that it lacks are taken as 0.
    Bars advance(std::span<const float> target);
    void reset();

  private:
    void advanceBand(std::size_t band, float target);

    float attack_;
    float decay_;
    float peakFall_;
    Bars bars_;
};

}  // namespace sonra
