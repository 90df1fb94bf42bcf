#include "support/SinkRecorder.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace sonra::test {
namespace {

using namespace std::chrono_literals;

bool anyAudible(std::span<const float> samples) {
    return std::any_of(samples.begin(), samples.end(),
                       [](float sample) { return std::abs(sample) > Recording::audible; });
}

}  // namespace

SinkRecorder::SinkRecorder(const std::string& sink)
    : parec_({"parec", "--device=" + sink + ".monitor", "--latency-msec=5", "--format=float32le",
              "--channels=1", "--rate=" + std::to_string(Recording::rate)}),
      thread_([this] { listen(); }) {
    const auto deadline = Recording::Clock::now() + 20s;
    while (size() == 0 && !deaf_ && Recording::Clock::now() < deadline)
        std::this_thread::sleep_for(1ms);
}

SinkRecorder::~SinkRecorder() {
    parec_.kill();
    thread_.join();
}

void SinkRecorder::listen() {
    alignas(float) std::array<char, 65'536> block;
    std::size_t held = 0;  // bytes of a sample that came in two parts
    for (;;) {
        const auto got = read(parec_.output(), block.data() + held, block.size() - held);
        if (got <= 0) break;
        held += static_cast<std::size_t>(got);
        const std::size_t count = held / sizeof(float);
        const auto* samples = reinterpret_cast<const float*>(block.data());
        const MutexLock lock(mutex_);
        recording_.samples.insert(recording_.samples.end(), samples, samples + count);
        recording_.arrivals.push_back({recording_.samples.size(), Recording::Clock::now()});
        std::copy(block.begin() + static_cast<std::ptrdiff_t>(count * sizeof(float)),
                  block.begin() + static_cast<std::ptrdiff_t>(held), block.begin());
        held -= count * sizeof(float);
    }
    deaf_ = true;
}

Recording SinkRecorder::recording() const {
    const MutexLock lock(mutex_);
    return recording_;
}

std::size_t SinkRecorder::size() const {
    const MutexLock lock(mutex_);
    return recording_.samples.size();
}

bool SinkRecorder::silentFor(std::chrono::milliseconds gap) const {
    const MutexLock lock(mutex_);
    const auto last = static_cast<std::size_t>(gap.count()) * Recording::rate / 1000;
    const std::span samples(recording_.samples);
    return samples.size() >= last && !anyAudible(samples.last(last));
}

bool SinkRecorder::heardSince(std::size_t from) const {
    const MutexLock lock(mutex_);
    const std::span samples(recording_.samples);
    return from < samples.size() && anyAudible(samples.subspan(from));
}

}  // namespace sonra::test
