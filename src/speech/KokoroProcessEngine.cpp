#include "speech/KokoroProcessEngine.h"

#include <utility>

#include "frame/ChildProcess.h"
#include "frame/ScriptResolver.h"
#include "frame/Text.h"
#include "frame/WorkerPool.h"
#include "speech/Lexicon.h"

namespace sonra {
namespace {

constexpr std::size_t snippetCharacters = 240;

/// Variables by which a script that plays learns of the service.
constexpr const char* playingVariables[] = {"TTS_VOLUME", "TTS_NARRATION_TEXT", "TTS_CAPTIONS",
                                            "TTS_SERVICE_SOCK"};

void setPlaying(Environment& environment, const KokoroStreamingContext& context) {
    environment["TTS_PLAYER"] = context.playerMode;
    environment["TTS_VOLUME"] = std::to_string(context.volume);
    environment["TTS_NARRATION_TEXT"] = text::prefix(context.narrationSnippet, snippetCharacters);
    environment["TTS_CAPTIONS"] = context.captionsEnabled ? "1" : "0";
    environment["TTS_SERVICE_SOCK"] = context.serviceSocketPath;
}

void setSilent(Environment& environment) {
    environment["TTS_PLAYER"] = "none";
    for (const auto* name : playingVariables) environment.erase(name);
}

}  // namespace

std::shared_ptr<KokoroProcessEngine> KokoroProcessEngine::make(WorkerPool& pool) {
    return make(pool, Options());
}

std::shared_ptr<KokoroProcessEngine> KokoroProcessEngine::make(WorkerPool& pool, Options options) {
    if (!options.uvResolver) options.uvResolver = [] { return ScriptResolver::bundledUv(); };
    if (!options.scriptLocator) options.scriptLocator = ScriptResolver::kokoroScript;
    return std::shared_ptr<KokoroProcessEngine>(new KokoroProcessEngine(pool, std::move(options)));
}

KokoroProcessEngine::KokoroProcessEngine(WorkerPool& pool, Options options)
    : SpawnedEngine(pool, Names{"KokoroProcessEngine", "Kokoro"}, options.limits),
      options_(std::move(options)) {}

const EngineDescriptor& KokoroProcessEngine::descriptor() const {
    static const EngineDescriptor own{.id = "kokoro",
                                      .ns = VoiceID::Namespace::kokoro,
                                      .supportsSpeed = true,
                                      .supportsStreaming = false};
    return own;
}

Readiness KokoroProcessEngine::readiness() const {
    try {
        script();
        return Readiness::ready();
    } catch (const ScriptResolverError&) {
        return Readiness::unavailable("tts_kokoro.py not found in app bundle or ~/.claude/tts");
    }
}

std::string KokoroProcessEngine::script() const {
    return options_.scriptOverride ? *options_.scriptOverride : options_.scriptLocator();
}

KokoroSpawnPlan KokoroProcessEngine::scriptPlan() const {
    try {
        return KokoroSpawnPlan::underUv(options_.uvResolver(), script());
    } catch (const ScriptResolverError& error) {
        throw SynthError::unavailable("tts_kokoro.py not found: " + std::string(error.what()));
    }
}

KokoroSpawnPlan KokoroProcessEngine::planFor(const std::string& textFile,
                                             const SpeechConfig& config, const std::string& outURL,
                                             Chunking chunking) const {
    auto plan = scriptPlan();
    plan.arguments.insert(plan.arguments.end(), {textFile, outURL});
    if (chunking == Chunking::streaming) plan.arguments.emplace_back("--play");
    plan.environment["TTS_VOICE"] = config.voice.id;
    plan.environment["TTS_SPEED"] = text::decimal(config.speed);
    const MutexLock lock(contextLock_);
    if (chunking == Chunking::streaming && streamingContext_) {
        setPlaying(plan.environment, *streamingContext_);
    } else {
        setSilent(plan.environment);
    }
    return plan;
}

std::string KokoroProcessEngine::spokenText(const std::string& text) const {
    return Lexicon::applyToSynthText(text);
}

void KokoroProcessEngine::warmup() {
    pool().post([self = shared_from_this(), this] {
        try {
            auto plan = scriptPlan();
            plan.environment["TTS_WARMUP"] = "1";
            ChildProcess::spawn({.executable = plan.executablePath,
                                 .arguments = plan.arguments,
                                 .environment = plan.environment,
                                 .error = ChildProcess::ErrorStream::null});
        } catch (const std::exception&) {
            // The first request will say what is wrong.
        }
    });
}

void KokoroProcessEngine::setStreamingContext(std::optional<KokoroStreamingContext> context) {
    const MutexLock lock(contextLock_);
    streamingContext_ = std::move(context);
}

}  // namespace sonra
