#include "history/ResynthProvider.h"

#include <unistd.h>

#include <cstdio>
#include <system_error>
#include <utility>

#include "frame/Log.h"
#include "frame/SerialQueue.h"
#include "frame/Text.h"
#include "frame/ThreadAffinity.h"
#include "frame/UniqueName.h"
#include "history/HistoryPager.h"
#include "history/RingCacheProvider.h"
#include "platform/MainLoop.h"

namespace sonra {
namespace {

constexpr std::size_t albumLineLength = 80;
constexpr std::size_t renderedIdLength = 8;

}  // namespace

/// One request from the moment that its text is there. Passed from the main thread to the synthesis
/// queue and back; each touches it in turn.
struct ResynthProvider::Job : std::enable_shared_from_this<Job> {
    Request request;
    std::string text;
    MainLoop& loop;
    Synth synth;
    std::shared_ptr<SerialQueue> queue;
    std::shared_ptr<RingDirectory> directory;
    std::weak_ptr<RingCacheProvider> ring;
    int clearings;
    std::string result;  ///< path of the speech, empty if there is none

    Job(Request ofRequest, std::string ofText, const ResynthProvider& provider)
        : request(std::move(ofRequest)),
          text(std::move(ofText)),
          loop(provider.loop_),
          synth(provider.synth_),
          queue(provider.synthQueue_),
          directory(provider.ring_->directory()),
          ring(provider.ring_),
          clearings(provider.ring_->clearings()) {}

    [[nodiscard]] bool isCurrent() const { return request.isCurrent(request.generation); }
    void start();
    void speak();
    std::string speakInto(const std::string& messageDirectory) const;
    void finish();
    void keep(RingCacheProvider& into);
    void done() const;
    void discardResult() const;
    [[nodiscard]] AudioChunk chunk() const;
};

void ResynthProvider::Job::start() {
    queue->post([self = shared_from_this()] { self->speak(); });
}

void ResynthProvider::Job::speak() {
    if (!isCurrent()) return;
    try {
        result = speakInto(directory->makeFor(request.ref.messageId));
    } catch (const std::system_error&) {
        result.clear();  // reported as speech that failed
    }
    loop.post([self = shared_from_this()] { self->finish(); });
}

/// The result leaves the scratch name at once: the next request may be for the same message, and
/// begins before the main thread has looked at this one.
std::string ResynthProvider::Job::speakInto(const std::string& messageDirectory) const {
    const auto scratch = messageDirectory + "/resynth.wav";
    auto finished = messageDirectory + "/resynth-" + uniqueSuffix() + ".wav";
    ::unlink(scratch.c_str());
    if (synth(text, scratch) && std::rename(scratch.c_str(), finished.c_str()) == 0)
        return finished;
    directory->discardFile(scratch);
    return {};
}

void ResynthProvider::Job::finish() {
    const auto into = ring.lock();
    if (!isCurrent() || !into) return discardResult();
    if (into->clearings() != clearings) {
        discardResult();
        return done();
    }
    if (result.empty()) {
        const auto id = text::prefix(request.ref.messageId, renderedIdLength);
        Log::shared()
            .child({{"class", "ResynthProvider"}})
            .warn("resynth produced no audio; message stays cold",
                  {{"input", {{"messageId", id}}}});
        return done();
    }
    keep(*into);
}

void ResynthProvider::Job::keep(RingCacheProvider& into) {
    if (const auto durable = into.adopt(request.ref.messageId, chunk())) {
        request.onChunk(*durable);
    } else {
        discardResult();
    }
    done();
}

void ResynthProvider::Job::done() const {
    if (isCurrent()) request.onDone();
}

/// On the synthesis queue, so that the directory isn't taken from under the next request.
void ResynthProvider::Job::discardResult() const {
    if (result.empty()) return;
    queue->post([self = shared_from_this()] { self->directory->discardFile(self->result); });
}

AudioChunk ResynthProvider::Job::chunk() const {
    return {.url = result,
            .text = text,
            .title = "Replay",
            .artist = "TTS",
            .albumLine = std::string(text::prefix(text, albumLineLength)),
            .sessionId = request.ref.sessionId,
            .messageId = request.ref.messageId,
            .ephemeral = false};
}

ResynthProvider::ResynthProvider(MainLoop& loop, std::shared_ptr<HistoryPager> history,
                                 std::shared_ptr<RingCacheProvider> ring, Synth synth,
                                 std::shared_ptr<SerialQueue> synthQueue)
    : loop_(loop),
      history_(std::move(history)),
      ring_(std::move(ring)),
      synth_(std::move(synth)),
      synthQueue_(std::move(synthQueue)) {}

std::optional<std::vector<AudioChunk>> ResynthProvider::cachedChunks(
    const std::string& /*messageId*/) const {
    return std::nullopt;
}

void ResynthProvider::resolveChunks(Request request) {
    SONRA_ASSERT_MAIN_THREAD();
    const auto messageId = request.ref.messageId;
    const auto job = std::make_shared<Job>(std::move(request), std::string(), *this);
    history_->lookUp(messageId, [job](std::optional<std::string> text) {
        if (!text || text->empty()) return job->done();
        job->text = *std::move(text);
        job->start();
    });
}

}  // namespace sonra
