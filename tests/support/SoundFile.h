#pragma once

#include <string>
#include <vector>

namespace sonra::test {

struct SoundFormat {
    int sampleRate = 22'050;
    int channels = 1;
    bool floatingPoint = false;  ///< else 16-bit integers
};

/// Writes a real WAV file. `samples` are of one channel and go into each.
void writeWav(const std::string& path, const std::vector<float>& samples, SoundFormat format = {});

/// `seconds` of a tone.
std::vector<float> tone(double hertz, double seconds, float amplitude = 0.5F,
                        int sampleRate = 22'050);
std::vector<float> silence(double seconds, int sampleRate = 22'050);

}  // namespace sonra::test
