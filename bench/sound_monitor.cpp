// Tells when a sink begins and ceases to sound: a recorder on its monitor with fragments of 5 ms.
//   sound_monitor SOURCE [FLOOR]
// prints "on <ns>" when sound begins after 50 ms of silence and "off <ns>" when 30 ms of silence
// begin, on the monotonic clock. Samples up to FLOOR, which is 0 unless given, are silence, so that
// a loud sound can be told from a quiet one that it follows. Staying open, it also keeps a null
// sink at work in blocks of 5 ms.
//
// An edge is dated by the arrival of the fragment that shows it: of the first sound, and of the
// first silence behind the last one. Where within its block of 5 ms a null sink "plays" a sample is
// a matter of definition; the arrival is what a listener can know, never too early and at most a
// fragment too late. Counting back from the arrival gave figures below zero.

#include <pulse/pulseaudio.h>
#include <time.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

/// Finds the edges of sound in a run of samples.
class Edges {
  public:
    explicit Edges(int floor) : floor_(floor) {}

    void feed(std::span<const std::int16_t> samples, std::int64_t arrivedNs) {
        for (const auto value : samples) sample(value, arrivedNs);
        std::fflush(stdout);
    }

  private:
    void sample(std::int16_t value, std::int64_t arrivedNs) {
        if (std::abs(value) > floor_) {
            if (!sounding_ && quiet_ >= quietBefore) {
                std::printf("on %lld\n", static_cast<long long>(arrivedNs));
                sounding_ = true;
            }
            quiet_ = 0;
            return;
        }
        if (quiet_++ == 0) silentNs_ = arrivedNs;
        if (quiet_ == quietBehind && sounding_) {
            std::printf("off %lld\n", static_cast<long long>(silentNs_));
            sounding_ = false;
        }
    }

    const int floor_;
    std::int64_t quiet_ = quietBefore;
    std::int64_t silentNs_ = 0;
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
    if (argc != 2 && argc != 3) return 2;
    Recorder recorder{argv[1], nullptr, Edges(argc == 3 ? std::atoi(argv[2]) : 0)};
    pa_mainloop* loop = pa_mainloop_new();
    pa_context* context = pa_context_new(pa_mainloop_get_api(loop), "sound_monitor");
    pa_context_set_state_callback(context, onContext, &recorder);
    if (pa_context_connect(context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return 1;
    int result = 0;
    pa_mainloop_run(loop, &result);
    return result;
}
