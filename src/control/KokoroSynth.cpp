#include "control/KokoroSynth.h"

#include <unistd.h>

#include <exception>
#include <filesystem>
#include <optional>

#include "frame/Log.h"
#include "frame/Semaphore.h"
#include "frame/TemporaryDirectory.h"
#include "frame/UniqueName.h"
#include "ingest/NarrationChunker.h"

namespace sonra::NativeNarration {
namespace {

/// One chunk on its way to a file.
struct Job {
    const std::string& text;
    const SpeechConfig& config;
    const std::string& file;
};

std::string fileFor(const std::string& sessionId, std::size_t index) {
    return temporaryDirectory() + "/sonra-narr-" + std::to_string(getpid()) + "-" +
           safeFileName(sessionId) + "-" + std::to_string(index) + "-" + uniqueSuffix() + ".wav";
}

bool isFile(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

/// Blocks until the engine is done with the chunk; the reason if it failed.
std::optional<SynthError> speakBySpawn(SpeechEngine& engine, const Job& job) {
    struct Outcome {
        Semaphore done;
        bool produced = false;
        std::optional<SynthError> error;
    };
    const auto outcome = std::make_shared<Outcome>();
    engine.synthesize(
        job.text, job.config, SynthesisSink::file(job.file), Chunking::combined,
        [outcome, file = job.file](const SynthChunk& chunk) {
            if (chunk.url == file) outcome->produced = true;
        },
        [outcome](const std::optional<SynthError>& error) {
            outcome->error = error;
            outcome->done.signal();
        });
    // Every request of an engine has a time limit of its own.
    outcome->done.wait();
    if (outcome->produced && isFile(job.file)) return std::nullopt;
    unlink(job.file.c_str());
    return outcome->error.value_or(SynthError::synthesisFailed("no sound file"));
}

void warnOfGap(const Log& log, std::size_t index, std::size_t total, const std::exception& cause) {
    log.warn("chunk synth produced no audio; dropping", cause,
             {{"input", {{"chunkIndex", index}, {"totalChunks", total}}}});
}

}  // namespace

NarrationPump::Synth makeKokoroSynth(std::shared_ptr<SpeechEngine> engine,
                                     std::shared_ptr<KokoroWorkerEngine> worker,
                                     std::function<SpeechConfig()> config) {
    const auto log = Log::shared().child({{"class", "NativeNarration"}, {"method", "synth"}});
    return [engine = std::move(engine), worker = std::move(worker), config = std::move(config),
            log](const std::string& text, const std::string& sessionId, const std::string&,
                 const NarrationPump::OnChunk& onChunk) {
        const auto chunks = NarrationChunker::split(text);
        if (chunks.empty()) return;
        const SpeechConfig settings = config();
        for (std::size_t i = 0; i < chunks.size(); ++i) {
            const auto file = fileFor(sessionId, i);
            if (!worker->synthCombinedToFile(chunks[i], settings.voice.id, settings.speed, file)) {
                if (const auto error = speakBySpawn(*engine, {chunks[i], settings, file})) {
                    warnOfGap(log, i, chunks.size(), *error);
                    continue;
                }
            }
            onChunk(chunks[i], file);
        }
    };
}

}  // namespace sonra::NativeNarration
