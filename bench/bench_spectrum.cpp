// Makes the spectrogram of a sound file with the settings of the captions: bench_spectrum FILE.
// Prints one JSON object; times in milliseconds, the median of all rounds, with the file in the
// page cache.

#include <sndfile.h>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <vector>

#include "frame/Json.h"
#include "playback/SpectrumAnalyzer.h"
#include "playback/SpectrumConfig.h"

namespace {

namespace config = sonra::SpectrumConfig;

constexpr int rounds = 31;

double secondsOf(const char* path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path, SFM_READ, &info);
    if (file == nullptr) return 0;
    sf_close(file);
    return static_cast<double>(info.frames) / info.samplerate;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    std::vector<double> times;
    bool isAudible = false;
    for (int round = 0; round < rounds; ++round) {
        const auto start = std::chrono::steady_clock::now();
        const auto made = sonra::SpectrumAnalyzer::analyze(argv[1], config::bandCount,
                                                           config::hopSeconds, config::fftSize);
        const auto took = std::chrono::steady_clock::now() - start;
        if (!made) return 1;
        times.push_back(std::chrono::duration<double, std::milli>(took).count());
        isAudible = std::ranges::any_of(made->bands(secondsOf(argv[1]) / 2),
                                        [](float level) { return level > 0; });
    }
    std::ranges::sort(times);
    std::cout << sonra::Json{{"seconds", secondsOf(argv[1])},
                             {"isAudible", isAudible},
                             {"medianMs", times[times.size() / 2]}}
                     .dump()
              << "\n";
    return 0;
}
