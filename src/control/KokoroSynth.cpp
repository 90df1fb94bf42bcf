#include "control/KokoroSynth.h"

#include <unistd.h>

#include <exception>

#include "control/SpokenFile.h"
#include "frame/Log.h"
#include "frame/TemporaryDirectory.h"
#include "frame/UniqueName.h"
#include "ingest/NarrationChunker.h"

namespace sonra::NativeNarration {
namespace {

std::string fileFor(const std::string& sessionId, std::size_t index) {
    return temporaryDirectory() + "/sonra-narr-" + std::to_string(getpid()) + "-" +
           safeFileName(sessionId) + "-" + std::to_string(index) + "-" + uniqueSuffix() + ".wav";
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
            auto file = fileFor(sessionId, i);
            if (!worker->synthCombinedToFile(chunks[i], settings.voice.id, settings.speed, file)) {
                // A worker that is late may still write the other one.
                file = fileFor(sessionId, i);
                if (const auto error = speakToFile(*engine, chunks[i], settings, file)) {
                    warnOfGap(log, i, chunks.size(), *error);
                    continue;
                }
            }
            onChunk(chunks[i], file);
        }
    };
}

}  // namespace sonra::NativeNarration
