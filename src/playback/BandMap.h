#pragma once

#include <span>
#include <vector>

namespace sonra {

/// Which bins of a transform make up which band of the spectrum. Immutable.
class BandMap {
  public:
    /// `edges` rise; `bins` is the number of bins of a transform, 4 or more, `hzPerBin` apart from
    /// 0 Hz on.
    BandMap(std::span<const float> edges, float hzPerBin, int bins);

    /// The loudness of each band from the bins' powers.
    [[nodiscard]] std::vector<float> decibels(std::span<const float> powers) const;

  private:
    /// A band takes the mean of its bins; one too narrow to have any reads between the two around
    /// its middle.
    struct Band {
        std::size_t firstBin = 0;
        std::size_t binCount = 0;
        float position = 1;  ///< in bins, where binCount is 0
    };
    [[nodiscard]] static float power(const Band& band, std::span<const float> powers);

    std::vector<Band> bands_;
};

}  // namespace sonra
