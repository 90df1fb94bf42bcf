#include "speech/MacSynthesizer.h"

#include <utility>

#include "speech/EngineRegistry.h"

namespace sonra {

MacSynthesizer::MacSynthesizer(WorkerPool& pool)
    : MacSynthesizer(KokoroProcessEngine::make(pool), GeminiEngine::make(pool)) {}

MacSynthesizer::MacSynthesizer(std::shared_ptr<KokoroProcessEngine> kokoro,
                               std::shared_ptr<GeminiEngine> gemini)
    : kokoro_(std::move(kokoro)), gemini_(std::move(gemini)) {}

std::shared_ptr<SpeechEngine> MacSynthesizer::engine(const VoiceID& voice) const {
    return EngineRegistry::resolve(voice, engines());
}

std::shared_ptr<SpawnedEngine> MacSynthesizer::freshEngine(const VoiceID& voice, WorkerPool& pool) {
    if (voice.ns == VoiceID::Namespace::gemini) return GeminiEngine::make(pool);
    return KokoroProcessEngine::make(pool);
}

}  // namespace sonra
