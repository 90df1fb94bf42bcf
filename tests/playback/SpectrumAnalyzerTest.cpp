#include "playback/SpectrumAnalyzer.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>
#include <numbers>
#include <numeric>

#include "playback/SpectrumConfig.h"
#include "support/SoundFile.h"
#include "support/TempDir.h"

namespace sonra {
namespace {

using test::silence;
using test::SoundFormat;
using test::tone;

class SpectrumAnalyzerTest : public testing::Test {
  protected:
    /// The spectrogram of these samples as a file, with the program's own settings.
    std::optional<Spectrogram> analyzed(const std::vector<float>& samples,
                                        SoundFormat format = {}) {
        test::writeWav(path_, samples, format);
        return analyzedFile(path_);
    }
    static std::optional<Spectrogram> analyzedFile(const std::string& path) {
        using namespace SpectrumConfig;
        return SpectrumAnalyzer::analyze(path, bandCount, hopSeconds, fftSize);
    }
    static std::size_t bandOf(float hertz, int sampleRate = 22'050) {
        const float top = std::min(static_cast<float>(sampleRate) / 2, SpectrumConfig::fMaxHz);
        const auto edges = SpectrumConfig::bandEdges(SpectrumConfig::bandCount, 60, top);
        const auto above = std::ranges::upper_bound(edges, hertz);
        return static_cast<std::size_t>(above - edges.begin()) - 1;
    }
    /// The power of one bin, up to a factor, by its definition; of 256 samples from `first` on.
    static double powerOf(int bin, const std::vector<float>& samples, std::size_t first) {
        std::complex<double> sum;
        for (std::size_t n = 0; n < 256; ++n) {
            const double turn = 2 * std::numbers::pi * static_cast<double>(n) / 256;
            sum += (1 - std::cos(turn)) * samples[first + n] * std::polar(1.0, -turn * bin);
        }
        return std::norm(sum);
    }
    static bool isFlat(const std::vector<float>& frame) {
        return std::ranges::all_of(frame, [](float value) { return value == 0; });
    }
    static float hottest(const std::vector<float>& frame) { return std::ranges::max(frame); }

    test::TempDir dir_;
    const std::string path_ = dir_ / "sound.wav";
};

TEST_F(SpectrumAnalyzerTest, ToneIsHotInItsOwnBand) {
    const auto result = analyzed(tone(1000, 1));
    ASSERT_TRUE(result);
    EXPECT_NEAR(result->duration, 1, 1e-3);
    EXPECT_EQ(result->frames.size(), 25U);
    const auto& frame = result->frames[12];
    ASSERT_EQ(frame.size(), 32U);
    const auto peak = static_cast<std::size_t>(std::ranges::max_element(frame) - frame.begin());
    EXPECT_EQ(peak, bandOf(1000));
    EXPECT_GT(frame[peak], 0.9F);
    EXPECT_EQ(frame[bandOf(4000)], 0);
}

TEST_F(SpectrumAnalyzerTest, SilentFileGivesZeroFrames) {
    const auto result = analyzed(silence(0.5));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->frames.size(), 13U);
    EXPECT_TRUE(std::ranges::all_of(result->frames, isFlat));
}

TEST_F(SpectrumAnalyzerTest, HalfSilenceIsFlatBeforeTheOnsetAndHotAfterIt) {
    auto samples = silence(1);
    const auto sound = tone(1000, 1);
    samples.insert(samples.end(), sound.begin(), sound.end());
    const auto result = analyzed(samples);
    ASSERT_TRUE(result);
    const std::size_t onset = 25;  // the frame at 1 s
    for (std::size_t i = 0; i < onset; ++i) EXPECT_TRUE(isFlat(result->frames[i])) << i;
    for (std::size_t i = onset + 1; i < 49; ++i) EXPECT_GT(hottest(result->frames[i]), 0.9F) << i;
}

TEST_F(SpectrumAnalyzerTest, CombOfTonesLightsEveryBand) {
    std::vector<float> comb = silence(1);
    const auto edges = SpectrumConfig::bandEdges(SpectrumConfig::bandCount, 60, 11'025);
    for (std::size_t band = 0; band + 1 < edges.size(); ++band) {
        const auto one = tone(std::sqrt(edges[band] * edges[band + 1]), 1, 0.02F);
        std::ranges::transform(comb, one, comb.begin(), std::plus<>());
    }
    const auto result = analyzed(comb);
    ASSERT_TRUE(result);
    for (std::size_t band = 0; band < 32; ++band) EXPECT_GT(result->frames[12][band], 0.2F) << band;
}

TEST_F(SpectrumAnalyzerTest, SoundFromTheFirstSampleIsHotInTheFirstFrame) {
    const auto result = analyzed(tone(1000, 0.5));
    ASSERT_TRUE(result);
    EXPECT_GT(result->frames.front()[bandOf(1000)], 0.8F);
}

// A tone of amplitude A on bin k gives that bin the power (A c N)², where c = 0.8164966 is the
// window's scale, N = 1024, and the transform has twice the mathematical size. At 25,600 Hz bins
// are 25 Hz apart and the band from 137 to 162 Hz has the one bin at 150 Hz. So the floor, 1e-6
// less the 1e-9 that is always added, is at A = sqrt(0.999e-6) / (0.8164966 * 1024) = 1.1955e-6.
// Without the factor of two it would be at 2.39e-6, with another window at 1.95e-6 or elsewhere.
TEST_F(SpectrumAnalyzerTest, SilenceFloorIsWhereTheTransformsScalePutsIt) {
    const SoundFormat format{25'600, 1, true};
    const auto below = analyzed(tone(150, 1, 1.18e-6F, 25'600), format);
    ASSERT_TRUE(below);
    EXPECT_TRUE(std::ranges::all_of(below->frames, isFlat));
    const auto above = analyzed(tone(150, 1, 1.21e-6F, 25'600), format);
    ASSERT_TRUE(above);
    EXPECT_NEAR(hottest(above->frames[12]), 1, 1e-4);
}

// Neighbours of a bin with a tone have a quarter of its power under a Hann window. From 6,133 to
// 7,237 Hz a band has 44 bins, so a tone there is 10 log10(1.5 / 44) = -14.67 dB in the band's
// mean, against 0 dB for one of the same size at 150 Hz alone in its band.
TEST_F(SpectrumAnalyzerTest, BandIsTheMeanPowerOfItsBins) {
    auto samples = tone(150, 1, 0.4F, 25'600);
    const auto high = tone(6500, 1, 0.4F, 25'600);
    std::ranges::transform(samples, high, samples.begin(), std::plus<>());
    const auto result = analyzed(samples, {25'600, 1, true});
    ASSERT_TRUE(result);
    const auto& frame = result->frames[12];
    EXPECT_NEAR(frame[bandOf(150, 25'600)], 1, 1e-3);
    EXPECT_NEAR(frame[bandOf(6500, 25'600)], 1 - 14.67 / 42, 0.01);
}

// With 58 Hz from bin to bin the lowest of eight bands, from 60 to 109.6 Hz, has none, and the
// next, up to 200.1 Hz, has bins 2 and 3.
TEST_F(SpectrumAnalyzerTest, ToneInABandWithoutBinsIsReadFromThoseBesideIt) {
    const int rate = 58 * 256;
    const auto samples = tone(75, 0.5, 0.5F, rate);
    test::writeWav(path_, samples, {rate, 1, true});
    const auto result = SpectrumAnalyzer::analyze(path_, 8, 0.04, 256);
    ASSERT_TRUE(result);
    const std::size_t first = 6 * 593 - 128;
    const double p1 = powerOf(1, samples, first), p2 = powerOf(2, samples, first),
                 p3 = powerOf(3, samples, first);
    const double position = 60 * std::pow(29 * 256 / 60.0, 1.0 / 16) / 58;
    const double narrow = p1 + (p2 - p1) * (position - 1);
    const double above = 10 * std::log10(narrow / ((p2 + p3) / 2));
    const auto& frame = result->frames[6];
    EXPECT_NEAR((frame[0] - frame[1]) * SpectrumConfig::dynamicRangeDb, above, 0.01);
    EXPECT_GT(frame[1], 0);
    EXPECT_LT(frame[0], 1.0F + 1e-6F);
}

TEST_F(SpectrumAnalyzerTest, OffsetOfTheSignalLightsNoBand) {
    const SoundFormat format{22'050, 1, true};
    auto samples = tone(1000, 1, 0.4F);
    const auto plain = analyzed(samples, format);
    for (float& sample : samples) sample += 0.4F;
    const auto offset = analyzed(samples, format);
    ASSERT_TRUE(plain && offset);
    for (std::size_t band = 0; band < 32; ++band)
        EXPECT_NEAR(offset->frames[12][band], plain->frames[12][band], 0.01) << band;
}

TEST_F(SpectrumAnalyzerTest, QuietAndLoudFilesFillTheBarsAlike) {
    const SoundFormat format{22'050, 1, true};
    const auto loud = analyzed(tone(1000, 0.4, 0.9F), format);
    const auto quiet = analyzed(tone(1000, 0.4, 0.001F), format);
    ASSERT_TRUE(loud && quiet);
    for (std::size_t band = 0; band < 32; ++band)
        EXPECT_NEAR(loud->frames[5][band], quiet->frames[5][band], 0.01) << band;
}

TEST_F(SpectrumAnalyzerTest, ChannelsAreMixedToTheirMean) {
    const auto one = analyzed(tone(1000, 0.4), {22'050, 1, true});
    const auto many = analyzed(tone(1000, 0.4), {22'050, 200, true});
    ASSERT_TRUE(one && many);
    EXPECT_EQ(one->duration, many->duration);
    ASSERT_EQ(one->frames.size(), many->frames.size());
    for (std::size_t band = 0; band < 32; ++band)
        EXPECT_NEAR(one->frames[5][band], many->frames[5][band], 1e-3) << band;
}

TEST_F(SpectrumAnalyzerTest, UnreadableFilesGiveNone) {
    test::writeFile(dir_ / "text.wav", "this is no sound");
    test::writeFile(dir_ / "empty.wav", "");
    test::writeWav(dir_ / "no-samples.wav", {});
    ASSERT_EQ(mkfifo((dir_ / "pipe.wav").c_str(), 0600), 0);
    for (const char* name :
         {"missing.wav", "text.wav", "empty.wav", "no-samples.wav", "pipe.wav", "."})
        EXPECT_FALSE(analyzedFile(dir_ / name)) << name;
}

TEST_F(SpectrumAnalyzerTest, UnusableSettingsGiveNone) {
    test::writeWav(path_, tone(1000, 0.1));
    for (const int fftSize : {-1024, 0, 1, 4, 1000, 1023})
        EXPECT_FALSE(SpectrumAnalyzer::analyze(path_, 32, 0.04, fftSize)) << fftSize;
    EXPECT_FALSE(SpectrumAnalyzer::analyze(path_, 0, 0.04, 1024));
    EXPECT_TRUE(SpectrumAnalyzer::analyze(path_, 32, 0.04, 8));
}

TEST_F(SpectrumAnalyzerTest, HopIsAtLeastOneSample) {
    test::writeWav(path_, tone(1000, 0.01));
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double hop : {0.0, -1.0, 1e-9, nan})
        EXPECT_EQ(SpectrumAnalyzer::analyze(path_, 32, hop, 256)->frames.size(), 221U) << hop;
    EXPECT_EQ(SpectrumAnalyzer::analyze(path_, 32, 1e300, 256)->frames.size(), 1U);
}

TEST_F(SpectrumAnalyzerTest, SampleRatesFromTheLowestToTheHighest) {
    EXPECT_FALSE(analyzed(silence(1000, 1), {1, 1, false}));  // no band fits below 0.5 Hz
    EXPECT_FALSE(analyzed(tone(10, 1, 0.5F, 120), {120, 1, false}));
    for (const int rate : {200, 8000, 44'100, 384'000, 1'000'000'000}) {
        const auto result =
            analyzed(tone(rate / 100.0, 30'000.0 / rate, 0.5F, rate), {rate, 1, false});
        ASSERT_TRUE(result) << rate;
        EXPECT_NEAR(result->duration, 30'000.0 / rate, 1e-6);
        EXPECT_GT(hottest(result->frames.front()), 0.8F) << rate;
    }
}

TEST_F(SpectrumAnalyzerTest, FramesFallBetweenBlocksAsWithin) {
    // A 20 ms burst each second, long enough for many blocks; every burst must look the same.
    std::vector<float> samples;
    for (int second = 0; second < 40; ++second) {
        const auto burst = tone(1000, 0.02);
        samples.insert(samples.end(), burst.begin(), burst.end());
        samples.resize(static_cast<std::size_t>(second + 1) * 22'050);
    }
    const auto result = analyzed(samples);
    ASSERT_TRUE(result);
    ASSERT_EQ(result->frames.size(), 1000U);
    for (std::size_t i = 25; i < 1000; ++i)
        EXPECT_EQ(result->frames[i], result->frames[25 + i % 25]) << i;
}

TEST_F(SpectrumAnalyzerTest, WildSamplesDontSpoilTheScale) {
    const float infinity = std::numeric_limits<float>::infinity();
    auto samples = tone(1000, 0.5);
    samples[100] = std::numeric_limits<float>::quiet_NaN();
    samples[200] = infinity;
    samples[300] = -infinity;
    const auto result = analyzed(samples, {22'050, 1, true});
    ASSERT_TRUE(result);
    EXPECT_GT(result->frames[6][bandOf(1000)], 0.9F);
    samples[400] = std::numeric_limits<float>::max();
    const auto hugest = analyzed(samples, {22'050, 1, true});
    ASSERT_TRUE(hugest);
    for (const auto& frame : hugest->frames)
        for (const float value : frame) EXPECT_TRUE(value >= 0 && value <= 1);
}

TEST_F(SpectrumAnalyzerTest, HeaderThatClaimsMoreThanThereIsGivesWhatThereIs) {
    test::writeWav(path_, tone(1000, 0.5));
    auto bytes = test::readFile(path_);
    const auto data = bytes.find("data");
    ASSERT_NE(data, std::string::npos);
    bytes.replace(4, 4, "\xff\xff\xff\x7f");
    bytes.replace(data + 4, 4, "\xf0\xff\xff\x7f");
    test::writeFile(path_, bytes);
    const auto result = analyzedFile(path_);
    ASSERT_TRUE(result);
    EXPECT_NEAR(result->duration, 0.5, 1e-3);
}

TEST_F(SpectrumAnalyzerTest, CutAnywhereAndWithAnyHeaderByteChangedItStaysBounded) {
    test::writeWav(path_, tone(1000, 0.05));
    const auto whole = test::readFile(path_);
    const auto check = [&](const std::string& bytes) {
        test::writeFile(path_, bytes);
        const auto result = analyzedFile(path_);
        if (!result) return;
        EXPECT_LE(result->frames.size(), bytes.size());
    };
    for (std::size_t length = 0; length < 100; ++length) check(whole.substr(0, length));
    for (std::size_t at = 0; at < 60; ++at) {
        for (const char byte : {'\x00', '\x01', '\x7f', '\xff'}) {
            auto broken = whole;
            broken[at] = byte;
            check(broken);
        }
    }
}

TEST_F(SpectrumAnalyzerTest, TooManyFramesGiveNone) {
    // At 124 Hz a hop is four samples.
    const std::size_t samples = 4 * (SpectrumAnalyzer::maxFrames + 1);
    test::writeWav(path_, std::vector<float>(samples, 0.5F), {124, 1, false});
    EXPECT_FALSE(SpectrumAnalyzer::analyze(path_, 1, 0.04, 8));
}

}  // namespace
}  // namespace sonra
