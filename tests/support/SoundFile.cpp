#include "support/SoundFile.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <cmath>
#include <memory>
#include <numbers>

namespace sonra::test {

void writeWav(const std::string& path, const std::vector<float>& samples, SoundFormat format) {
    SF_INFO info{};
    info.samplerate = format.sampleRate;
    info.channels = format.channels;
    info.format = SF_FORMAT_WAV | (format.floatingPoint ? SF_FORMAT_FLOAT : SF_FORMAT_PCM_16);
    const std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file(sf_open(path.c_str(), SFM_WRITE, &info),
                                                           sf_close);
    ASSERT_TRUE(file) << sf_strerror(nullptr);
    std::vector<float> interleaved;
    interleaved.reserve(samples.size() * static_cast<std::size_t>(format.channels));
    for (const float sample : samples)
        interleaved.insert(interleaved.end(), static_cast<std::size_t>(format.channels), sample);
    const auto count = static_cast<sf_count_t>(samples.size());
    ASSERT_EQ(sf_writef_float(file.get(), interleaved.data(), count), count);
}

std::vector<float> tone(double hertz, double seconds, float amplitude, int sampleRate) {
    std::vector<float> samples(static_cast<std::size_t>(std::lround(seconds * sampleRate)));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double phase = 2 * std::numbers::pi * hertz * static_cast<double>(i) / sampleRate;
        samples[i] = amplitude * static_cast<float>(std::sin(phase));
    }
    return samples;
}

std::vector<float> silence(double seconds, int sampleRate) {
    return std::vector<float>(static_cast<std::size_t>(std::lround(seconds * sampleRate)));
}

}  // namespace sonra::test
