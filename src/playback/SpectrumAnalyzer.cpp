#include "playback/SpectrumAnalyzer.h"

#include <kiss_fftr.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <memory>
#include <numbers>
#include <span>

#include "playback/BandMap.h"
#include "playback/MonoReader.h"
#include "playback/SampleWindow.h"
#include "playback/SpectrumConfig.h"

namespace sonra::SpectrumAnalyzer {
namespace {

constexpr int smallestFft = 8;

/// Scale of the Hann window with unit power: the square root of 8/3, halved. The silence floor
/// counts on it.
constexpr float hannScale = 0.8164966F;

/// The floor's scale also counts on a transform of twice the mathematical size, four times in
/// power.
constexpr float powerScale = 4;

std::vector<float> hannWindow(int size) {
    std::vector<float> window(static_cast<std::size_t>(size));
    for (std::size_t n = 0; n < window.size(); ++n) {
        const double angle = 2 * std::numbers::pi * static_cast<double>(n) / size;
        window[n] = hannScale * static_cast<float>(1 - std::cos(angle));
    }
    return window;
}

/// Squared magnitudes of windowed samples.
class Transform {
  public:
    explicit Transform(int size)
        : setup_(kiss_fftr_alloc(size, 0, nullptr, nullptr), kiss_fftr_free),
          window_(hannWindow(size)),
          windowed_(window_.size()),
          spectrum_(window_.size() / 2 + 1),
          powers_(window_.size() / 2) {}

    explicit operator bool() const { return setup_ != nullptr; }

    /// One power for each bin below the half of the sample rate. Valid until the next call.
    std::span<const float> powers(std::span<const float> samples) {
        std::ranges::transform(samples, window_, windowed_.begin(), std::multiplies<>());
        kiss_fftr(setup_.get(), windowed_.data(), spectrum_.data());
        std::ranges::transform(
            std::span(spectrum_).first(powers_.size()), powers_.begin(),
            [](kiss_fft_cpx bin) { return powerScale * (bin.r * bin.r + bin.i * bin.i); });
        return powers_;
    }

  private:
    std::unique_ptr<kiss_fftr_state, void (*)(void*)> setup_;
    std::vector<float> window_;
    std::vector<float> windowed_;
    std::vector<kiss_fft_cpx> spectrum_;
    std::vector<float> powers_;
};

std::int64_t hopLength(int sampleRate, double hopSeconds) {
    const double samples = sampleRate * hopSeconds;
    return samples >= 1 ? static_cast<std::int64_t>(std::min(samples, 1e15)) : 1;
}

/// The frames in dB; absent if they are too many, empty for an empty file.
std::optional<std::vector<std::vector<float>>> measure(SampleWindow& samples, const BandMap& bands,
                                                       Transform& transform, std::int64_t hop,
                                                       int fftSize) {
    std::vector<std::vector<float>> frames;
    std::vector<float> window(static_cast<std::size_t>(fftSize));
    for (std::int64_t centre = 0;; centre += hop) {
        samples.moveTo(centre - fftSize / 2);
        if (!samples.has(centre)) return frames;
        if (frames.size() == maxFrames) return std::nullopt;
        samples.copy(window);
        frames.push_back(bands.decibels(transform.powers(window)));
    }
}

float loudest(const std::vector<std::vector<float>>& frames) {
    float most = -200;
    for (const auto& frame : frames)
        for (const float value : frame) most = std::max(most, value);
    return most;
}

/// Scales to the file's own loudest moment, so that quiet and loud speech fill the bars alike.
void normalize(std::vector<std::vector<float>>& frames) {
    const float top = loudest(frames);
    const bool silent = top < SpectrumConfig::silenceFloorDb;
    const float floor = top - SpectrumConfig::dynamicRangeDb;
    for (auto& frame : frames)
        for (float& value : frame)
            value = silent
                        ? 0
                        : std::clamp((value - floor) / SpectrumConfig::dynamicRangeDb, 0.0F, 1.0F);
}

bool isUsable(int fftSize) {
    return fftSize >= smallestFft && std::has_single_bit(static_cast<unsigned>(fftSize));
}

}  // namespace

std::optional<Spectrogram> analyze(const std::string& path, int bandCount, double hopSeconds,
                                   int fftSize) {
    if (!isUsable(fftSize)) return std::nullopt;
    const auto reader = MonoReader::open(path);
    Transform transform(fftSize);
    if (!reader || !transform) return std::nullopt;
    const int rate = reader->sampleRate();
    const float top = std::min(static_cast<float>(rate) / 2, SpectrumConfig::fMaxHz);
    const auto edges = SpectrumConfig::bandEdges(bandCount, SpectrumConfig::fMinHz, top);
    if (edges.empty()) return std::nullopt;

    SampleWindow samples(*reader);
    const BandMap bands(edges, static_cast<float>(rate) / static_cast<float>(fftSize), fftSize / 2);
    auto frames = measure(samples, bands, transform, hopLength(rate, hopSeconds), fftSize);
    if (!frames || frames->empty()) return std::nullopt;
    normalize(*frames);
    return Spectrogram{bandCount, hopSeconds, std::move(*frames),
                       static_cast<double>(samples.count()) / rate};
}

}  // namespace sonra::SpectrumAnalyzer
