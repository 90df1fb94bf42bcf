#include "control/SpokenFile.h"

#include <unistd.h>

#include <memory>

#include "frame/FileProbe.h"
#include "frame/Semaphore.h"

namespace sonra {

std::optional<SynthError> speakToFile(SpeechEngine& engine, const std::string& text,
                                      const SpeechConfig& config, const std::string& path) {
    struct Outcome {
        Semaphore done;
        bool produced = false;
        std::optional<SynthError> error;
    };
    const auto outcome = std::make_shared<Outcome>();
    engine.synthesize(
        text, config, SynthesisSink::file(path), Chunking::combined,
        [outcome, path](const SynthChunk& chunk) {
            if (chunk.url == path) outcome->produced = true;
        },
        [outcome](const std::optional<SynthError>& error) {
            outcome->error = error;
            outcome->done.signal();
        });
    // Every request of an engine has a time limit of its own.
    outcome->done.wait();
    if (outcome->produced && fileExists(path)) return std::nullopt;
    unlink(path.c_str());
    return outcome->error.value_or(SynthError::synthesisFailed("no sound file"));
}

}  // namespace sonra
