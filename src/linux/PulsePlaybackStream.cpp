#include "linux/PulsePlaybackStream.h"

#include <pulse/channelmap.h>
#include <pulse/context.h>
#include <pulse/error.h>
#include <pulse/operation.h>
#include <pulse/sample.h>
#include <pulse/stream.h>
#include <pulse/timeval.h>

#include <algorithm>
#include <span>
#include <utility>

#include "frame/ThreadAffinity.h"

namespace sonra {
namespace {

// Enough ahead to survive a busy machine, started by a fraction of it, refilled about ten times a
// second.
constexpr pa_usec_t bufferAhead = 400 * PA_USEC_PER_MSEC;
constexpr pa_usec_t enoughToStart = 20 * PA_USEC_PER_MSEC;
constexpr pa_usec_t refillStep = 100 * PA_USEC_PER_MSEC;

pa_sample_spec specOf(const SoundFileReader& reader) {
    return {PA_SAMPLE_FLOAT32NE, static_cast<std::uint32_t>(reader.rate()),
            static_cast<std::uint8_t>(reader.channels())};
}

std::size_t frameBytes(const SoundFileReader& reader) {
    return static_cast<std::size_t>(reader.channels()) * sizeof(float);
}

pa_buffer_attr attributesFor(const pa_sample_spec& spec) {
    const auto bytes = [&](pa_usec_t time) {
        return static_cast<std::uint32_t>(pa_usec_to_bytes(time, &spec));
    };
    constexpr auto serversChoice = static_cast<std::uint32_t>(-1);
    return {serversChoice, bytes(bufferAhead), bytes(enoughToStart), bytes(refillStep),
            serversChoice};
}

pa_stream* newStream(pa_context* context, const std::string& name, const pa_sample_spec& spec) {
    pa_channel_map map;
    pa_channel_map_init_extend(&map, spec.channels, PA_CHANNEL_MAP_WAVEEX);
    return pa_stream_new(context, name.c_str(), &spec, &map);
}

void forget(pa_operation* operation) {
    if (operation != nullptr) pa_operation_unref(operation);
}

}  // namespace

PulsePlaybackStream::PulsePlaybackStream(std::shared_ptr<PulseConnection> connection,
                                         std::shared_ptr<SoundFileReader> reader, EndCallback onEnd)
    : connection_(std::move(connection)), reader_(std::move(reader)), onEnd_(std::move(onEnd)) {}

PulsePlaybackStream::~PulsePlaybackStream() {
    SONRA_ASSERT_MAIN_THREAD();
    const PulseLock lock(connection_->loop());
    disconnect();
}

void PulsePlaybackStream::disconnect() {
    if (drain_ != nullptr) {
        pa_operation_cancel(drain_);
        forget(std::exchange(drain_, nullptr));
    }
    if (stream_ == nullptr) return;
    pa_stream_set_state_callback(stream_, nullptr, nullptr);
    pa_stream_set_write_callback(stream_, nullptr, nullptr);
    pa_stream_disconnect(stream_);
    pa_stream_unref(std::exchange(stream_, nullptr));
}

std::optional<std::string> PulsePlaybackStream::open(const std::string& name, float volume,
                                                     Patience patience) {
    SONRA_ASSERT_MAIN_THREAD();
    if (auto error = connection_->reach(patience)) return error;
    const PulseLock lock(connection_->loop());
    gain_ = volume;
    firstFrame_ = reader_->position();
    if (!connect(name)) return connection_->errorText();
    const bool answered = connection_->waitFor(
        [stream = stream_] {
            const auto state = pa_stream_get_state(stream);
            return state == PA_STREAM_READY || !PA_STREAM_IS_GOOD(state);
        },
        patience);
    opened_ = pa_stream_get_state(stream_) == PA_STREAM_READY;
    if (opened_) return std::nullopt;
    if (answered) return connection_->errorText();
    disconnect();
    connection_->drop();
    return pa_strerror(PA_ERR_TIMEOUT);
}

bool PulsePlaybackStream::connect(const std::string& name) {
    pa_context* const context = connection_->context();
    const auto spec = specOf(*reader_);
    stream_ = context == nullptr ? nullptr : newStream(context, name, spec);
    if (stream_ == nullptr) return false;
    pa_stream_set_state_callback(
        stream_,
        [](pa_stream*, void* data) {
            auto* self = static_cast<PulsePlaybackStream*>(data);
            self->connection_->loop().assertHeld();
            self->stateChanged();
        },
        this);
    pa_stream_set_write_callback(
        stream_,
        [](pa_stream*, std::size_t bytes, void* data) {
            auto* self = static_cast<PulsePlaybackStream*>(data);
            self->connection_->loop().assertHeld();
            self->feed(bytes);
        },
        this);
    const auto attributes = attributesFor(spec);
    const int flags =
        PA_STREAM_START_CORKED | PA_STREAM_INTERPOLATE_TIMING | PA_STREAM_AUTO_TIMING_UPDATE;
    return pa_stream_connect_playback(stream_, nullptr, &attributes,
                                      static_cast<pa_stream_flags_t>(flags), nullptr, nullptr) >= 0;
}

void PulsePlaybackStream::run() {
    SONRA_ASSERT_MAIN_THREAD();
    const PulseLock lock(connection_->loop());
    begun_ = running_ = true;
    cork(false);
    if (allWritten_) beginDrain();
}

void PulsePlaybackStream::stand() {
    SONRA_ASSERT_MAIN_THREAD();
    const PulseLock lock(connection_->loop());
    running_ = false;
    cork(true);
}

void PulsePlaybackStream::cork(bool corked) {
    forget(pa_stream_cork(stream_, corked ? 1 : 0, nullptr, nullptr));
}

void PulsePlaybackStream::setVolume(float volume) {
    SONRA_ASSERT_MAIN_THREAD();
    const PulseLock lock(connection_->loop());
    gain_ = volume;
    if (pa_stream_get_state(stream_) == PA_STREAM_READY) rewriteUnheard();
}

double PulsePlaybackStream::heard() {
    SONRA_ASSERT_MAIN_THREAD();
    const PulseLock lock(connection_->loop());
    readTime();
    return heard_;
}

void PulsePlaybackStream::readTime() {
    pa_usec_t time = 0;
    if (begun_ && pa_stream_get_time(stream_, &time) >= 0)
        heard_ = static_cast<double>(time) / PA_USEC_PER_SEC;
}

void PulsePlaybackStream::feed(std::size_t bytes) {
    auto frames = static_cast<std::int64_t>(bytes / frameBytes(*reader_));
    while (!allWritten_ && frames > 0) {
        const std::int64_t count = writeBlock(frames, 0);
        allWritten_ = count == 0 || reader_->atEnd();
        written_ += count;
        frames -= count;
    }
    if (allWritten_ && running_) beginDrain();
}

/// Replaces what the server holds from the sample that is being heard on. What it has passed on
/// already it takes back from the device if that can be done, and else ignores.
void PulsePlaybackStream::rewriteUnheard() {
    readTime();
    const auto heardFrames = static_cast<std::int64_t>(heard_ * reader_->rate());
    std::int64_t back = std::max<std::int64_t>(written_ - heardFrames, 0);
    if (back == 0) return;
    reader_->seek(firstFrame_ + heardFrames);
    for (std::int64_t left = back; left > 0; back = 0) {
        const std::int64_t count = writeBlock(left, back);
        if (count == 0) break;
        left -= count;
    }
}

/// Decodes straight into libpulse's memory, and sends it to stand `framesBack` before the end of
/// what was written. Returns the frames written, 0 when there is nothing left to decode or nobody
/// to write to.
std::int64_t PulsePlaybackStream::writeBlock(std::int64_t frames, std::int64_t framesBack) {
    void* memory = nullptr;
    const std::size_t frameSize = frameBytes(*reader_);
    std::size_t bytes = static_cast<std::size_t>(frames) * frameSize;
    if (pa_stream_begin_write(stream_, &memory, &bytes) < 0) return 0;
    const std::span samples(static_cast<float*>(memory), bytes / sizeof(float));
    const std::int64_t got = reader_->read(samples);
    if (got == 0) {
        pa_stream_cancel_write(stream_);
        return 0;
    }
    for (float& sample : samples.first(static_cast<std::size_t>(got * reader_->channels())))
        sample *= gain_;
    const auto filled = static_cast<std::size_t>(got) * frameSize;
    const auto offset = -framesBack * static_cast<std::int64_t>(frameSize);
    if (pa_stream_write(stream_, memory, filled, nullptr, offset, PA_SEEK_RELATIVE) < 0) return 0;
    return got;
}

/// Asks to be told when the last sample has been heard. Only while running: a drain would set a
/// standing stream of some servers going.
void PulsePlaybackStream::beginDrain() {
    if (drain_ != nullptr) return;
    drain_ = pa_stream_drain(
        stream_,
        [](pa_stream*, int success, void* data) {
            auto* self = static_cast<PulsePlaybackStream*>(data);
            self->connection_->loop().assertHeld();
            self->drained(success != 0);
        },
        this);
}

void PulsePlaybackStream::drained(bool success) {
    if (!success) {
        end(End::broken, connection_->errorText());
    } else if (reader_->atEnd()) {
        end(End::heard, {});
    } else {
        end(End::undecodable, "the file can't be decoded to its end");
    }
}

void PulsePlaybackStream::stateChanged() {
    connection_->loop().wakeWaiters();
    if (opened_ && !PA_STREAM_IS_GOOD(pa_stream_get_state(stream_)))
        end(End::broken, connection_->errorText());
}

void PulsePlaybackStream::end(End how, const std::string& reason) {
    if (const auto onEnd = std::exchange(onEnd_, nullptr)) onEnd(how, reason);
}

}  // namespace sonra
