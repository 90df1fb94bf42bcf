#pragma once

#include <memory>
#include <vector>

#include "speech/GeminiEngine.h"
#include "speech/KokoroProcessEngine.h"

namespace sonra {

/// The engines that the program has, and the choice among them. Owned by the coordinator; any
/// thread may call. The pool is borrowed and must outlive it.
class MacSynthesizer {
  public:
    /// With the engines' default resolvers.
    explicit MacSynthesizer(WorkerPool& pool);
    MacSynthesizer(std::shared_ptr<KokoroProcessEngine> kokoro,
                   std::shared_ptr<GeminiEngine> gemini);

    [[nodiscard]] const std::shared_ptr<KokoroProcessEngine>& kokoro() const { return kokoro_; }
    [[nodiscard]] const std::shared_ptr<GeminiEngine>& gemini() const { return gemini_; }
    [[nodiscard]] std::vector<std::shared_ptr<SpeechEngine>> engines() const {
        return {kokoro_, gemini_};
    }
    /// The engine that is ready to speak with this voice; null if there is none.
    [[nodiscard]] std::shared_ptr<SpeechEngine> engine(const VoiceID& voice) const;

    /// An engine that shares no cancellation with anybody, ready or not: for every namespace but
    /// `gemini` the local one.
    static std::shared_ptr<SpawnedEngine> freshEngine(const VoiceID& voice, WorkerPool& pool);

  private:
    std::shared_ptr<KokoroProcessEngine> kokoro_;
    std::shared_ptr<GeminiEngine> gemini_;
};

}  // namespace sonra
