#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "playback/SpectrumSmoother.h"

namespace sonra {

class MainLoop;
class WorkerPool;

/// The bars for the file that plays: has it analysed in the background and gives smoothed values
/// tick by tick.
///
/// Main thread only. Until the analysis is in, and if it fails, the bars rest. A result that comes
/// after the next `begin` or `reset`, or after the feed's end, is dropped. Borrows the loop and the
/// pool, which outlive the analysis.
class SpectrumFeed {
  public:
    SpectrumFeed(MainLoop& loop, WorkerPool& pool);

    /// Forgets what was and starts to analyse the file at `path`.
    void begin(const std::string& path);
    /// Forgets what was.
    void reset();
    /// The bars one tick further: towards the bands at `time`, or to rest where it is absent.
    SpectrumSmoother::Bars tick(std::optional<double> time);
    /// Levels or peaks of bars at rest.
    [[nodiscard]] const std::vector<float>& zeros() const { return zeros_; }

  private:
    struct Analysis;

    MainLoop& loop_;
    WorkerPool& pool_;
    std::shared_ptr<Analysis> analysis_;  ///< one object for each file
    SpectrumSmoother smoother_;
    std::vector<float> zeros_;
};

}  // namespace sonra
