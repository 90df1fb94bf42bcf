#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace sonra::test {

/// What a sink has played, as one channel of samples at 48 kHz, and when each part of it came in.
struct Recording {
    using Clock = std::chrono::steady_clock;
    static constexpr int rate = 48'000;
    /// Above the noise of an empty sink, below the quietest sound that tests make.
    static constexpr float audible = 0.004F;

    struct Utterance {
        std::size_t begin;
        std::size_t end;
        [[nodiscard]] double seconds() const { return static_cast<double>(end - begin) / rate; }
    };

    std::vector<float> samples;
    struct Arrival {
        std::size_t end;  ///< samples that were in by then
        Clock::time_point at;
    };
    std::vector<Arrival> arrivals;

    /// Runs of sound that are at least `gap` apart.
    [[nodiscard]] std::vector<Utterance> utterances(
        std::chrono::milliseconds gap = std::chrono::milliseconds(30)) const;
    /// Everything audible in one piece, silence cut out.
    [[nodiscard]] std::vector<float> sound() const;
    [[nodiscard]] double rms(std::size_t begin, std::size_t end) const;
    /// Where `pattern` is found sample by sample, `scale` times as loud. A pattern without silence
    /// is found across the gaps that a busy server makes, too.
    [[nodiscard]] std::optional<std::size_t> find(std::span<const float> pattern,
                                                  std::size_t from = 0, float scale = 1) const;
    [[nodiscard]] Clock::time_point arrivedAt(std::size_t sample) const;
};

}  // namespace sonra::test
