#include "speech/GeminiEngine.h"

#include <utility>

#include "frame/CtlInvocation.h"
#include "frame/ForeignTexts.h"
#include "frame/Home.h"
#include "frame/ScriptResolver.h"

namespace sonra {
namespace {

std::optional<std::string> companionScript() {
    try {
        return ScriptResolver::ttsJsScript();
    } catch (const ScriptResolverError&) {
        return std::nullopt;
    }
}

std::string required(const std::optional<std::string>& found, const char* complaint) {
    if (!found) throw SynthError::unavailable(complaint);
    return *found;
}

}  // namespace

std::shared_ptr<GeminiEngine> GeminiEngine::make(WorkerPool& pool) {
    return make(pool, Options());
}

std::shared_ptr<GeminiEngine> GeminiEngine::make(WorkerPool& pool, Options options) {
    if (!options.nodeResolver)
        options.nodeResolver = [] { return CtlInvocation::resolveNodeBinary(); };
    if (!options.scriptResolver) options.scriptResolver = companionScript;
    if (!options.keyResolver) options.keyResolver = defaultKeyResolver;
    return std::shared_ptr<GeminiEngine>(new GeminiEngine(pool, std::move(options)));
}

GeminiEngine::GeminiEngine(WorkerPool& pool, Options options)
    : SpawnedEngine(pool, Names{"GeminiEngine", "Gemini"}, options.limits),
      options_(std::move(options)) {}

std::optional<std::string> GeminiEngine::defaultKeyResolver() {
    auto key = environmentValue("GOOGLE_API_KEY");
    if (key.empty()) return std::nullopt;
    return key;
}

std::optional<std::string> GeminiEngine::key() const {
    auto found = options_.keyResolver();
    if (found && found->empty()) return std::nullopt;
    return found;
}

const EngineDescriptor& GeminiEngine::descriptor() const {
    static const EngineDescriptor own{.id = "gemini",
                                      .ns = VoiceID::Namespace::gemini,
                                      .supportsSpeed = false,
                                      .supportsStreaming = false};
    return own;
}

Readiness GeminiEngine::readiness() const {
    if (!key())
        return Readiness::unavailable("no Gemini key (set GOOGLE_API_KEY or save one in Settings)");
    if (!options_.nodeResolver()) return Readiness::unavailable(foreigntexts::nodeMissing);
    if (!options_.scriptResolver())
        return Readiness::unavailable("tts.js not found in app bundle or ~/.claude/tts");
    return Readiness::ready();
}

KokoroSpawnPlan GeminiEngine::planFor(const std::string& textFile, const SpeechConfig& config,
                                      const std::string& outURL, Chunking chunking) const {
    KokoroSpawnPlan plan;
    plan.executablePath = required(options_.nodeResolver(), "Node.js not found");
    plan.arguments = {required(options_.scriptResolver(), "tts.js not found"), textFile, outURL,
                      "--gemini"};
    if (chunking == Chunking::streaming) plan.arguments.emplace_back("--play");
    plan.environment = ownEnvironment();
    plan.environment["GOOGLE_API_KEY"] = required(key(), "no Gemini key");
    plan.environment["TTS_VOICE"] = config.voice.id;
    plan.environment.erase("TTS_SPEED");
    return plan;
}

}  // namespace sonra
