// Tells when a sink begins and ceases to sound: a recorder on its monitor with fragments of 5 ms.
//   sound_monitor SOURCE
// prints "on <ns>" for the first sample after 50 ms of silence and "off <ns>" for the last one
// before 30 ms of silence, on the monotonic clock. Staying open, it also keeps a null sink at work
// in blocks of 5 ms.
//
// A sample's time is that of its place in the stream, not that of its fragment's arrival: a null
// sink renders a block when the block begins to play and hands it to the monitor at once, so the
// fragment that arrives with the least delay tells when its first sample sounds, and every other
// sample lies a whole number of samples beside it. What the server renders anew in the middle of a
// block shows in the monitor from the next block on: a figure may be up to 5 ms too long, never
// too short.

#include <pulse/pulseaudio.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <span>

namespace {

constexpr std::uint32_t rate = 48'000;
constexpr std::int64_t quietBefore = rate / 20;
constexpr std::int64_t quietBehind = rate * 3 / 100;

std::int64_t nowNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

/// Places the samples of one uninterrupted stream on the monotonic clock.
class StreamClock {
  public:
    /// A fragment of `size` samples has arrived.
    void arrived(std::int64_t size, std::int64_t atNs) {
        const std::int64_t origin = atNs - samplesBefore_ * 1'000'000'000 / rate;
        recent_[fragments_++ % recent_.size()] = origin;
        // The least delayed of the last second: the two clocks may drift apart for longer.
        origin_ = *std::min_element(recent_.begin(),
                                    recent_.begin() + std::min(fragments_, recent_.size()));
        fragmentBegins_ = samplesBefore_;
        samplesBefore_ += size;
    }

    /// When sample `index` of the fragment that arrived last sounds.
    std::int64_t timeOf(std::int64_t index) const {
        return origin_ + (fragmentBegins_ + index) * 1'000'000'000 / rate;
    }

  private:
    std::array<std::int64_t, 200> recent_{};
    std::size_t fragments_ = 0;
    std::int64_t origin_ = 0;
    std::int64_t fragmentBegins_ = 0;
    std::int64_t samplesBefore_ = 0;
};

/// Finds the edges of sound in a run of samples.
class Edges {
  public:
    void feed(std::span<const std::int16_t> samples, std::int64_t arrivedNs) {
        clock_.arrived(std::ssize(samples), arrivedNs);
        for (std::size_t i = 0; i < samples.size(); ++i)
            sample(samples[i], clock_.timeOf(static_cast<std::int64_t>(i)));
        std::fflush(stdout);
    }

  private:
    void sample(std::int16_t value, std::int64_t atNs) {
        if (value != 0) {
            if (!sounding_ && quiet_ >= quietBefore) {
                std::printf("on %lld\n", static_cast<long long>(atNs));
                sounding_ = true;
            }
            lastNs_ = atNs;
            quiet_ = 0;
        } else if (++quiet_ == quietBehind && sounding_) {
            std::printf("off %lld\n", static_cast<long long>(lastNs_));
            sounding_ = false;
        }
    }

    StreamClock clock_;
    std::int64_t quiet_ = quietBefore;
    std::int64_t lastNs_ = 0;
    bool sounding_ = false;
};

void onRead(pa_stream* stream, std::size_t /*bytes*/, void* userdata) {
    auto& edges = *static_cast<Edges*>(userdata);
    const void* data = nullptr;
    std::size_t size = 0;
    while (pa_stream_readable_size(stream) > 0 && pa_stream_peek(stream, &data, &size) == 0 &&
           size > 0) {
        if (data != nullptr)
            edges.feed({static_cast<const std::int16_t*>(data), size / sizeof(std::int16_t)},
                       nowNs());
        pa_stream_drop(stream);
    }
}

struct Recorder {
    const char* source;
    pa_stream* stream = nullptr;
    Edges edges;
};

void onContext(pa_context* context, void* userdata) {
    auto& recorder = *static_cast<Recorder*>(userdata);
    if (pa_context_get_state(context) != PA_CONTEXT_READY || recorder.stream != nullptr) return;
    const pa_sample_spec spec{PA_SAMPLE_S16LE, rate, 1};
    constexpr std::uint32_t fragment = rate / 200 * sizeof(std::int16_t);
    constexpr auto any = static_cast<std::uint32_t>(-1);
    const pa_buffer_attr attributes{any, any, any, any, fragment};
    recorder.stream = pa_stream_new(context, "monitor", &spec, nullptr);
    pa_stream_set_read_callback(recorder.stream, onRead, &recorder.edges);
    pa_stream_connect_record(recorder.stream, recorder.source, &attributes,
                             PA_STREAM_ADJUST_LATENCY);
    std::puts("ready");
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    Recorder recorder{argv[1], nullptr, {}};
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "sound_monitor");
    pa_context_set_state_callback(context, onContext, &recorder);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return 1;
    int result = 0;
    pa_mainloop_run(loop, &result);
    return result;
}
